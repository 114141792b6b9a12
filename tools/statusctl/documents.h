/// The documents by the names that a user of the tool gives them, and what they hold, parsed.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include <json/value.h>

#include "store/documents.h"

namespace statusctl {

/// The names of all documents, each behind a blank.
std::string document_names();

/// The position in `status_documents` of the document with this name, with .json behind it or
/// without. Throws InputError where there is none.
std::size_t document_named(std::string_view name);

enum class ReadState {
    good,
    missing,
    unreadable,  // no access, no regular file, or too large
    locked,      // another process keeps its exclusive lock
    empty,
    damaged,  // not valid JSON
};

struct DocumentRead {
    ReadState state = ReadState::good;
    Json::Value root;    // of a good document
    std::string text;    // what the file holds, as far as it could be read
    std::string reason;  // why the document isn't good, in a few words on one line
};

/// Reads one of `status_documents`. Waits up to `patience` until nobody rewrites or locks it.
DocumentRead read_document_safely(const StatusDocument& document,
                                  std::chrono::milliseconds patience = std::chrono::seconds(1));

}  // namespace statusctl
