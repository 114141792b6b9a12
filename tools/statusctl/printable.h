/// How the tool shows values, times and colours.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include <json/value.h>

namespace statusctl {

/// `text` with everything escaped that could act on a terminal or mislead its reader: control
/// characters and those that are invisible or turn the writing direction as \u and four
/// digits, or above FFFF as \U and eight, bytes that are no UTF-8 as \x and two.
std::string printable(std::string_view text);

/// `text` with blanks behind it, up to so many bytes.
std::string padded(std::string text, std::size_t width);

/// `text` with a line end and so many blanks in place of a blank wherever a line would become
/// longer than `width`.
std::string folded(std::string text, std::size_t width, std::size_t indentation);

/// The value as JSON in printable ASCII: on one line, or indented over several.
std::string json_line(const Json::Value& value);
std::string json_lines(const Json::Value& value);

/// The value for people: text in quotes with its letters as they are, but for its own quotes
/// and backslashes, which follow a backslash; all else as JSON.
std::string printable_value(const Json::Value& value);

/// The time of day, such as 09:05:07.123, in the local zone.
std::string clock_text(std::chrono::system_clock::time_point time);

/// The moment in UTC as ISO 8601 has it, with milliseconds.
std::string utc_text(std::chrono::system_clock::time_point time);

/// Each by its number in a terminal's escape sequence.
enum class Style { heading = 1, faint = 2, removed = 31, added = 32, name = 36 };

/// `text` in colour where standard output is a terminal and NO_COLOR isn't set, else as it is.
std::string styled(Style style, const std::string& text);

}  // namespace statusctl
