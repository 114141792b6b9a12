/// What the files of this folder share about a video input: its cache, and its empty values.
/// All of it under `document_mutex`.
#pragma once

#include <json/value.h>

#include "core/shared_state.h"

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

// --- input_reset.cpp ---

/// Takes all that an input has shown about its signal back to its empty values. `entry` is the
/// input's entry in `inputs`.
void reset_input_entry(Json::Value& entry);

/// Gives a cache what it holds when nothing is shown; `connected` and `isStable` stay. False
/// where it holds that already.
bool blank_input_cache(InputCache& cache);
