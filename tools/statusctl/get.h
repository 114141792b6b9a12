/// `statusctl get`: a document, or one member of it.
#pragma once

#include <string>

namespace statusctl {

struct GetOptions {
    std::string document;  // empty for all
    std::string path;      // empty for the whole document
    bool json = false;     // text as JSON too
};

/// Prints what the options ask for. Gives the exit status: 0, or 1 where a document can't be
/// read or has no such member, with a line on standard error. Throws InputError.
int run_get(const GetOptions& options);

}  // namespace statusctl
