/// The messages of the service by the names of their types and fields, as data: what `send`
/// accepts and lists.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/code_text.h"

namespace statusctl {

/// The rows of a table; none by default.
template <typename Row>
struct Rows {
    const Row* first = nullptr;
    std::size_t count = 0;

    constexpr Rows() = default;
    constexpr Rows(const Row* table, std::size_t size) : first(table), count(size) {}
    template <std::size_t size>
    constexpr Rows(const Row (&table)[size]) : first(table), count(size)  // NOLINT: it is one
    {
    }
    [[nodiscard]] constexpr const Row* begin() const { return first; }
    [[nodiscard]] constexpr const Row* end() const { return first + count; }
};

/// The words that can stand for the codes of a field.
using Words = Rows<CodeText>;

enum class FieldKind {
    unsigned_number,
    signed_number,
    text,
    decimal_item,  // of a text message: a number, for which its words can stand
    word_item,     // of a text message: one of its words, sent as that word
};

struct MessageField {
    const char* name;
    FieldKind kind;
    std::size_t offset;  // bytes from the start of the payload
    std::size_t width;   // bytes; 0 for an item of a text message, which has no fixed place
    Words words;
    bool is_optional = false;  // may be left out: the last items of a text message
};

enum class PayloadKind { record, text, none };

struct MessageKind {
    const char* name;
    std::uint32_t type;
    PayloadKind payload;
    std::size_t record_size;    // bytes; 0 where the payload is no record
    Rows<MessageField> fields;  // of a record; of a text the items that stand in it, in order
};

/// All kinds, by their numbers.
Rows<MessageKind> message_kinds();

/// The kind with this name, in upper or lower case and with or without its prefix. Throws
/// InputError where there is none.
const MessageKind& message_kind_named(std::string_view name);

/// The names of the fields, separated by blanks, the optional ones in brackets.
std::string field_names(const MessageKind& kind);

/// The words of a field with their codes, such as "0 PoE, 1 Adapter"; without the codes where the
/// word itself is sent.
std::string words_of(const MessageField& field);

/// The types with their fields, widths and words, in lines to read.
std::string list_of_messages(Rows<MessageKind> kinds);

/// Whether two texts differ in nothing but the case of ASCII letters.
bool same_but_for_case(std::string_view one, std::string_view other);

}  // namespace statusctl
