/// The documents by the names that a user of the tool gives them.
#pragma once

#include <bitset>
#include <cstddef>
#include <iterator>
#include <string_view>

#include "store/documents.h"

namespace statusctl {

/// A bit for each row of `status_documents`.
using DocumentSet = std::bitset<std::size(status_documents)>;

/// The position in `status_documents` of the document with this name, with .json behind it or
/// without. Throws InputError where there is none.
std::size_t document_named(std::string_view name);

}  // namespace statusctl
