/// Access to documents that anything on the device may have damaged. The library's own access
/// raises an exception on a value of another kind than expected; here such a value counts as
/// absent. As in the library, looking at an absent member creates it as null. A member of the
/// wrong kind is replaced by null.
///
/// Every `parent` and `object` is an object or null. No locks, any thread.
#pragma once

#include <string_view>

#include <json/value.h>

/// True where members can be taken from `value`: an object, or null, which becomes one.
bool holds_members(const Json::Value& value);

/// The member `name` of `parent`: an object or null.
Json::Value& object_in(Json::Value& parent, const char* name);

/// The member `name` of `parent`: an array, empty where there was none.
Json::Value& array_in(Json::Value& parent, const char* name);

/// The member `name` of `object`: a value that the library converts to a flag, to a number and to
/// a text, in this order. Null, which is converted to false, 0 and the empty text, where there was
/// none.
Json::Value& flag_in(Json::Value& object, const char* name);
Json::Value& number_in(Json::Value& object, const char* name);
Json::Value& text_in(Json::Value& object, const char* name);

/// Whether the value, as the library converts it, is this text. What it doesn't convert, and
/// null, is the empty text.
bool has_text(const Json::Value& value, std::string_view text);

/// Sets the member `name` of `object` where it differs; true where it did. An absent
/// member counts as false or empty text: setting it to that changes nothing and leaves it null.
bool set_flag(Json::Value& object, const char* name, bool flag);
bool set_text(Json::Value& object, const char* name, const char* text);

/// The entry of `array` at `position`. While there is none, what `make_entry()` gives is
/// appended, and an entry that can hold no members is replaced by it.
template <typename MakeEntry>
Json::Value& entry_at(Json::Value& array, Json::ArrayIndex position, const MakeEntry& make_entry)
{
    while (array.size() <= position) {
        array.append(make_entry());
    }
    Json::Value& entry = array[position];
    if (!holds_members(entry)) {
        entry = make_entry();
    }
    return entry;
}
