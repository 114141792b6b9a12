/// From words that a person writes to the datagram that the service receives. Pure functions.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace statusctl {

/// The datagram of a message in words: the name of its type, then `FIELD=VALUE` for a record,
/// or a text's items, each as a word or all in one that is split like a line. A field that isn't
/// named is 0. A value is a word of the field, or a number, decimal or with 0x; an item is a
/// word, which stands in the text as the service knows it, or a decimal number. A text has no
/// zero byte behind it: the service ends it. Throws InputError.
std::string datagram_from_words(const std::vector<std::string>& words);

/// What is doubtful about a datagram though it can be sent, a line each: more bytes than the
/// service takes, a type or a length that it does not know, a code for which it has no word. What
/// is quoted is not yet escaped.
std::vector<std::string> doubts_about(std::string_view datagram);

/// The bytes that the hexadecimal digits in `text` tell, two a byte, blanks between bytes
/// ignored. Throws InputError.
std::string bytes_from_hex(std::string_view text);

/// A line's words: separated by blanks; blanks inside double quotes belong to the word, and
/// there a backslash stands before a quote or a backslash. Throws InputError.
std::vector<std::string> split_words(std::string_view line);

}  // namespace statusctl
