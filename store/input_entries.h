/// The entries of the video inputs in `inputs.json`, for all who report about an input.
#pragma once

#include <json/value.h>

/// The entry of the input at `position`. Entries that are missing are appended with one member,
/// `member`, which is null. Under `document_mutex`.
Json::Value& input_entry(Json::Value& root, unsigned position, const char* member);

/// `video` of that entry: an object or null, made in the same way.
Json::Value& input_video(Json::Value& root, unsigned position);
