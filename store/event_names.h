/// The update events, by the names that subscribers know them by.
#pragma once

#include <cstdint>

constexpr const char* inputs_update_event = "e_input_json_update";
constexpr const char* usb_host_update_event = "e_usb_host_json_update";
constexpr const char* ethernet_update_event = "e_ethernet_json_update";
constexpr const char* power_update_event = "e_power_json_update";

/// The netlink multicast group that they are sent to.
constexpr std::uint32_t update_event_group = 1;
