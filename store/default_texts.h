/// The documents as they stand before anything has been reported.
#pragma once

#include <string_view>

extern const std::string_view inputs_default_text;
extern const std::string_view usb_host_default_text;
extern const std::string_view ethernet_default_text;
extern const std::string_view power_default_text;
extern const std::string_view outputs_default_text;
