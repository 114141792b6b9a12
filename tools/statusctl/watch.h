/// The documents' changes, shown as they come.
#pragma once

#include <bitset>
#include <chrono>
#include <cstddef>
#include <functional>
#include <iterator>

#include "store/documents.h"

namespace statusctl {

/// A bit for each of `status_documents`.
using DocumentSet = std::bitset<std::size(status_documents)>;

struct WatchOptions {
    DocumentSet documents;
    bool json = false;
    bool changes_only = false;           // not the state at the start
    std::size_t count = 0;               // ends after so many documents' changes; 0 for never
    std::chrono::milliseconds limit{0};  // ends after that time; 0 for never
};

/// Reads the documents, calls `once_read`, and prints on standard output what changes from then on,
/// until the options, SIGINT or SIGTERM end it, or at once where `once_read` gives false. Gives how
/// many changes of documents it has shown since. Throws std::system_error.
std::size_t watch_documents(const WatchOptions& options, const std::function<bool()>& once_read);

}  // namespace statusctl
