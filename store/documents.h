/// The five status documents: the one list of them, for the service and for all that is built
/// around it, and how they are seeded.
#pragma once

#include <cstdint>
#include <string_view>

// --- default_texts.cpp ---

extern const std::string_view inputs_default_text;
extern const std::string_view usb_host_default_text;
extern const std::string_view ethernet_default_text;
extern const std::string_view power_default_text;
extern const std::string_view outputs_default_text;

struct StatusDocument {
    std::string_view name;  // that of the file, without .json
    const char* path;
    const char* event;  // the netlink event that announces a change; null where none does
    int event_delay_s;  // seconds from the last write to the event; 0: at once, with each write
    const std::string_view* default_text;  // what it says before anything has been reported
};

// clang-format off
constexpr StatusDocument inputs_document =
    {"inputs",   "/var/run/status/inputs.json",   "e_input_json_update",    3, &inputs_default_text};
constexpr StatusDocument usb_host_document =
    {"usb-host", "/var/run/status/usb-host.json", "e_usb_host_json_update", 0, &usb_host_default_text};
constexpr StatusDocument ethernet_document =
    {"ethernet", "/var/run/status/ethernet.json", "e_ethernet_json_update", 0, &ethernet_default_text};
constexpr StatusDocument power_document =
    {"power",    "/var/run/status/power.json",    "e_power_json_update",    0, &power_default_text};
constexpr StatusDocument outputs_document =
    {"outputs",  "/var/run/status/outputs.json",  nullptr,                  0, &outputs_default_text};
// clang-format on

constexpr StatusDocument status_documents[] = {
    inputs_document, usb_host_document, ethernet_document, power_document, outputs_document,
};

/// The netlink multicast group that the events are sent to.
constexpr std::uint32_t update_event_group = 1;

// --- seed_documents.cpp: called at start, in this order, before any thread is started. ---
//
// A document that can't be written is absent until a handler writes it; nothing is reported.

/// Writes the default text unless there is a document already.
void seed_inputs_document();
/// Writes the default text over whatever is there.
void seed_usb_host_document();
/// Writes the default text unless there is a document already.
void seed_ethernet_document();
/// Writes the default text over whatever is there.
void seed_power_document();
/// Writes the default text unless there is a document already.
void seed_outputs_document();
