/// The five documents as the tool names them.
#pragma once

#include <bitset>
#include <cstddef>
#include <iterator>
#include <string_view>

#include "core/paths.h"

namespace statusctl {

struct StatusDocument {
    std::string_view name;
    const char* path;
    std::string_view event;  // that announces a change; empty where none does
};

constexpr StatusDocument status_documents[] = {
    {"inputs", inputs_document_path, "e_input_json_update"},
    {"usb-host", usb_host_document_path, "e_usb_host_json_update"},
    {"ethernet", ethernet_document_path, "e_ethernet_json_update"},
    {"power", power_document_path, "e_power_json_update"},
    {"outputs", outputs_document_path, ""},
};

/// A bit for each row of `status_documents`.
using DocumentSet = std::bitset<std::size(status_documents)>;

/// The position in `status_documents` of the document with this name, with .json behind it or
/// without. Throws InputError where there is none.
std::size_t document_named(std::string_view name);

}  // namespace statusctl
