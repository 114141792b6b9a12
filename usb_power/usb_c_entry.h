/// The entries of `usb_c` in `usb-host.json`, found by what they say of themselves.
#pragma once

#include <json/value.h>

/// `index` of the entry of the USB-C input, which is also USB host input IN1.
constexpr int usb_c_input_index = 1;
/// `index` of the entry of USB host input IN2.
constexpr int usb_host_in2_index = 2;

/// The first entry with this `index`; null where there is none. An entry without the member is
/// passed over and gets it as null. Under `document_mutex`.
Json::Value* find_usb_c_entry(Json::Value& entries, int index);
