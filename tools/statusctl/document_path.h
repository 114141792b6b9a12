/// The place of a member in a document, such as `inputs[0].video.color` or
/// `inputs.0.video.color`. Pure functions.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <json/value.h>

namespace statusctl {

/// The steps of a path: names of members and positions in arrays. Throws InputError.
std::vector<std::string> path_steps(std::string_view path);

/// What stands there; null where nothing does. It lives as long as `root`.
const Json::Value* value_at(const Json::Value& root, const std::vector<std::string>& steps);

}  // namespace statusctl
