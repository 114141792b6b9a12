/// `statusctl watch`: the documents' state, and every change of it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace statusctl {

struct WatchOptions {
    std::vector<std::string> documents;  // none for all
    bool json = false;                   // an object a line
    bool changes_only = false;           // not the state at the start
    std::size_t count = 0;               // ends after so many documents' changes; 0 for never
    double seconds = 0;                  // ends after that time; 0 for never
};

/// Watches until a bound of the options is reached, or SIGINT or SIGTERM comes. Gives the exit
/// status, 0. Throws InputError, or std::system_error where nothing can be watched.
int run_watch(const WatchOptions& options);

}  // namespace statusctl
