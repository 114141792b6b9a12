#include "tools/statusctl/compose_datagram.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <set>

#include "core/messages.h"
#include "tools/statusctl/input_error.h"
#include "tools/statusctl/message_types.h"
#include "tools/statusctl/printable.h"

namespace statusctl {

namespace {

/// The row of a word; null where it is none.
const CodeText* row_of_word(const Words& words, std::string_view text)
{
    const auto* const row = std::find_if(
        words.begin(), words.end(),
        [text](const CodeText& candidate) { return same_but_for_case(candidate.text, text); });
    return row == words.end() ? nullptr : row;
}

std::optional<std::int64_t> number_in(std::string_view text)
{
    const bool negative = !text.empty() && text.front() == '-';
    text.remove_prefix(negative ? 1 : 0);
    const bool hexadecimal =
        text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    text.remove_prefix(hexadecimal ? 2 : 0);
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, hexadecimal ? 16 : 10);
    if (error != std::errc() || stop != end || number > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    const auto value = static_cast<std::int64_t>(number);
    return negative ? -value : value;
}

bool fits(const MessageField& field, std::int64_t number)
{
    const auto bits = static_cast<unsigned>(8 * field.width);
    if (field.kind == FieldKind::signed_number) {
        const std::int64_t limit = std::int64_t{1} << (bits - 1);
        return number >= -limit && number < limit;
    }
    return number >= 0 && number < std::int64_t{1} << bits;
}

/// What a field takes beside its words.
std::string what_fits(const MessageField& field)
{
    const std::string bits = std::to_string(8 * field.width) + " bits";
    switch (field.kind) {
        case FieldKind::unsigned_number:
            return "a number of " + bits;
        case FieldKind::signed_number:
            return "a signed number of " + bits;
        case FieldKind::text:
            return "at most " + std::to_string(field.width) + " bytes of text";
        case FieldKind::decimal_item:
            return "a decimal number of 32 bits";
        case FieldKind::word_item:
            break;
    }
    return "nothing else";
}

[[noreturn]] void refuse(const MessageField& field, std::string_view value)
{
    std::string line = printable(value) + " does not fit " + field.name + ", which takes ";
    for (const CodeText& row : field.words) {
        line += std::string("\"") + row.text + "\", ";
    }
    line += field.words.count == 0 ? "" : "or ";
    throw InputError(line + what_fits(field));
}

template <typename Number>
void put(char* place, std::int64_t value)
{
    const auto number = static_cast<Number>(value);
    std::memcpy(place, &number, sizeof number);
}

void put_number(char* place, const MessageField& field, std::int64_t number)
{
    switch (field.width) {
        case 1:
            return put<std::uint8_t>(place, number);
        case 2:
            return put<std::uint16_t>(place, number);
        default:
            return put<std::uint32_t>(place, number);
    }
}

void put_field(char* place, const MessageField& field, std::string_view value)
{
    if (field.kind == FieldKind::text) {
        if (value.size() > field.width) {
            refuse(field, value);
        }
        std::memcpy(place, value.data(), value.size());
        return;
    }
    const CodeText* const row = row_of_word(field.words, value);
    const std::optional<std::int64_t> number = row == nullptr ? number_in(value) : row->code;
    if (!number || !fits(field, *number)) {
        refuse(field, value);
    }
    put_number(place, field, *number);
}

std::string record_payload(const MessageKind& kind, const std::vector<std::string>& words)
{
    std::string payload(kind.record_size, '\0');
    std::set<const MessageField*> given;
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::string_view word = words[i];
        const std::size_t equals = word.find('=');
        if (equals == std::string_view::npos) {
            throw InputError(printable(word) + " is not of the form FIELD=VALUE");
        }
        const MessageField* field = find_field(kind, word.substr(0, equals));
        if (field == nullptr) {
            throw InputError(std::string(kind.name) + " has no field " +
                             printable(word.substr(0, equals)));
        }
        if (!given.insert(field).second) {
            throw InputError(std::string(field->name) + " is given twice");
        }
        put_field(payload.data() + field->offset, *field, word.substr(equals + 1));
    }
    return payload;
}

/// An item as the service reads it.
std::string item_text(const MessageField& item, std::string_view given)
{
    if (const CodeText* const row = row_of_word(item.words, given)) {
        return item.kind == FieldKind::word_item ? row->text : std::to_string(row->code);
    }
    std::int32_t number = 0;
    const char* const end = given.data() + given.size();
    const auto [stop, error] = std::from_chars(given.data(), end, number);
    if (item.kind == FieldKind::word_item || error != std::errc() || stop != end) {
        refuse(item, given);
    }
    return std::to_string(number);
}

std::string text_payload(const MessageKind& kind, const std::vector<std::string>& words)
{
    const std::vector<std::string> items =
        words.size() == 2 ? split_words(words[1])
                          : std::vector<std::string>(words.begin() + 1, words.end());
    const auto optional = std::count_if(kind.fields.begin(), kind.fields.end(),
                                        [](const MessageField& item) { return item.is_optional; });
    const std::size_t most = kind.fields.count;
    if (items.size() > most || items.size() + static_cast<std::size_t>(optional) < most) {
        throw InputError(std::string(kind.name) + " takes " + items_of_text(kind));
    }
    std::string payload;
    for (std::size_t i = 0; i < items.size(); ++i) {
        payload += (i == 0 ? "" : " ") + item_text(kind.fields.first[i], items[i]);
    }
    return payload;
}

std::string payload_from_words(const MessageKind& kind, const std::vector<std::string>& words)
{
    switch (kind.payload) {
        case PayloadKind::record:
            return record_payload(kind, words);
        case PayloadKind::text:
            return text_payload(kind, words);
        case PayloadKind::none:
            break;
    }
    if (words.size() != 1) {
        throw InputError(std::string(kind.name) + " takes nothing");
    }
    return "";
}

int hex_digit(char digit)
{
    constexpr std::string_view digits = "0123456789abcdef";
    const char small =
        digit >= 'A' && digit <= 'F' ? static_cast<char>(digit + ('a' - 'A')) : digit;
    const std::size_t value = digits.find(small);
    return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

constexpr bool is_blank(char letter)
{
    return letter == ' ' || letter == '\t';
}

/// Takes a quoted part from behind its opening quote on and appends it to `word`; gives the
/// position behind the closing quote.
std::size_t take_quoted(std::string_view line, std::size_t position, std::string& word)
{
    for (; position < line.size() && line[position] != '"'; ++position) {
        const char next = position + 1 < line.size() ? line[position + 1] : '\0';
        if (line[position] == '\\' && (next == '"' || next == '\\')) {
            ++position;
        }
        word += line[position];
    }
    if (position >= line.size()) {
        throw InputError("a quote is not closed");
    }
    return position + 1;
}

}  // namespace

std::string datagram_from_words(const std::vector<std::string>& words)
{
    if (words.empty()) {
        throw InputError("there is no message; send --list shows the types");
    }
    const MessageKind* kind = find_message_kind(words.front());
    if (kind == nullptr) {
        throw InputError("there is no type " + printable(words.front()) +
                         "; send --list shows the types");
    }
    const std::string payload = payload_from_words(*kind, words);
    const MessageHeader header = {kind->type, static_cast<std::uint32_t>(payload.size())};
    std::string datagram(sizeof header, '\0');
    std::memcpy(datagram.data(), &header, sizeof header);
    return datagram + payload;
}

std::string bytes_from_hex(std::string_view text)
{
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (is_blank(text[i])) {
            continue;
        }
        const int high = hex_digit(text[i]);
        const int low = i + 1 < text.size() ? hex_digit(text[i + 1]) : -1;
        if (high < 0 || low < 0) {
            throw InputError("not two hexadecimal digits a byte, at character " +
                             std::to_string(i + 1));
        }
        bytes += static_cast<char>(16 * high + low);
        ++i;
    }
    return bytes;
}

std::vector<std::string> split_words(std::string_view line)
{
    std::vector<std::string> words;
    bool inside = false;
    for (std::size_t i = 0; i < line.size();) {
        if (is_blank(line[i])) {
            inside = false;
            ++i;
            continue;
        }
        if (!inside) {
            words.emplace_back();
            inside = true;
        }
        if (line[i] == '"') {
            i = take_quoted(line, i + 1, words.back());
        } else {
            words.back() += line[i++];
        }
    }
    return words;
}

}  // namespace statusctl
