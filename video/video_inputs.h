/// How a report finds its video input, and how one is told from the last.
#pragma once

#include <json/value.h>

#include "core/shared_state.h"

constexpr Json::ArrayIndex hdmi_input = 0;
constexpr Json::ArrayIndex usb_c_input = 1;

/// The input that a report's port means: its position in `input_cache` and in the array
/// `inputs`. No port is rejected.
constexpr Json::ArrayIndex input_position(int port)
{
    return port == 1 ? usb_c_input : hdmi_input;
}

/// The entry of an input in `inputs.json`. Entries that are missing are appended with one
/// member, `member`, which is null. Under `document_mutex`.
Json::Value& input_entry(Json::Value& root, Json::ArrayIndex position, const char* member);

/// `video` of the entry of an input, created in the same way.
Json::Value& input_video(Json::Value& root, Json::ArrayIndex position);

/// Takes a reported value into the cache; true where it differs from what the cache holds.
/// Both are compared as numbers, and a value wider than its cache field keeps its low bits.
template <typename Cached, typename Reported>
bool take(Cached& cached, Reported reported)
{
    if (cached == reported) {
        return false;
    }
    cached = static_cast<Cached>(reported);
    return true;
}
