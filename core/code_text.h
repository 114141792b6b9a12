/// Words for the codes of messages: tables of code and text, and the one way to look them up.
#pragma once

#include <cstddef>

struct CodeText {
    int code;
    const char* text;
};

/// The text of `code` in `table`, or `fallback` where the table has no such code.
template <std::size_t count>
constexpr const char* text_of_code(const CodeText (&table)[count], int code, const char* fallback)
{
    for (const CodeText& row : table) {
        if (row.code == code) {
            return row.text;
        }
    }
    return fallback;
}
