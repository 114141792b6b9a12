/// The five documents as the tool names them.
#pragma once

#include <bitset>
#include <cstddef>
#include <iterator>
#include <string_view>

#include "core/paths.h"
#include "store/default_texts.h"
#include "store/event_names.h"

namespace statusctl {

struct StatusDocument {
    std::string_view name;
    const char* path;
    std::string_view event;  // that announces a change; empty where none does
    const std::string_view* default_text;
};

constexpr StatusDocument status_documents[] = {
    {"inputs", inputs_document_path, inputs_update_event, &inputs_default_text},
    {"usb-host", usb_host_document_path, usb_host_update_event, &usb_host_default_text},
    {"ethernet", ethernet_document_path, ethernet_update_event, &ethernet_default_text},
    {"power", power_document_path, power_update_event, &power_default_text},
    {"outputs", outputs_document_path, "", &outputs_default_text},
};

/// A bit for each row of `status_documents`.
using DocumentSet = std::bitset<std::size(status_documents)>;

/// The position in `status_documents` of the document with this name, with .json behind it or
/// without. Throws InputError where there is none.
std::size_t document_named(std::string_view name);

}  // namespace statusctl
