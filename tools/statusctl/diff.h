/// What differs between two states of a document. Pure functions.
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

namespace statusctl {

struct Change {
    std::string path;
    const Json::Value* before;  // null where the member was not there
    const Json::Value* after;   // null where it is there no longer
};

/// The members that differ, each by itself, in the order of their paths. Either state may be
/// null, for none at all. The changes point into both states.
std::vector<Change> differences(const Json::Value* before, const Json::Value* after);

}  // namespace statusctl
