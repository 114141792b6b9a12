#include "tools/statusctl/compose_datagram.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <set>
#include <sstream>

#include "core/core.h"
#include "tools/statusctl/message_types.h"
#include "tools/statusctl/printable.h"
#include "tools/statusctl/statusctl.h"

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

/// A number as people write it: decimal or with 0x, and of either sign.
std::optional<std::int64_t> written_number_in(std::string_view text)
{
    const bool negative = text.substr(0, 1) == "-";
    text.remove_prefix(negative ? 1 : 0);
    const bool hexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    text.remove_prefix(hexadecimal ? 2 : 0);
    const auto number = number_in<std::uint32_t>(text, hexadecimal ? 16 : 10);
    return number ? std::optional<std::int64_t>(negative ? -std::int64_t{*number} : *number)
                  : std::nullopt;
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
    const std::string words = words_of(field);
    throw InputError(printable(value) + " does not fit " + field.name + ", which takes " +
                     (words.empty() ? "" : words + ", or ") + what_fits(field));
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
    const std::optional<std::int64_t> number =
        row == nullptr ? written_number_in(value) : row->code;
    if (!number || !fits(field, *number)) {
        refuse(field, value);
    }
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the low bytes stand first");
    std::memcpy(place, &*number, field.width);
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
        const std::string_view name = word.substr(0, equals);
        const MessageField* const field = std::find_if(
            kind.fields.begin(), kind.fields.end(),
            [name](const MessageField& row) { return same_but_for_case(row.name, name); });
        if (field == kind.fields.end()) {
            throw InputError(std::string(kind.name) + " has no field " + printable(name) +
                             ", but " + field_names(kind));
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
    const auto number = number_in<std::int32_t>(given);
    if (item.kind == FieldKind::word_item || !number) {
        refuse(item, given);
    }
    return std::to_string(*number);
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
        throw InputError(std::string(kind.name) + " takes " + field_names(kind));
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

/// The number that a record has in a field with words, which fits.
std::int32_t number_at(const MessageField& field, std::string_view payload)
{
    std::int32_t number = 0;
    std::memcpy(&number, payload.data() + field.offset, std::min(sizeof number, field.width));
    return number;
}

void add_doubts(const MessageKind& kind, std::string_view payload, std::vector<std::string>& doubts)
{
    std::istringstream items{std::string(payload)};
    for (const MessageField& field : kind.fields) {
        const bool in_record = kind.payload == PayloadKind::record;
        std::string item;
        items >> item;
        const auto number = in_record ? number_at(field, payload) : number_in<std::int32_t>(item);
        const bool has_word =
            std::any_of(field.words.begin(), field.words.end(),
                        [&number](const CodeText& row) { return row.code == number; });
        // A record's field that is not given is 0.
        if (field.words.count > 0 && number && !has_word && !(in_record && number == 0)) {
            doubts.push_back(std::string(field.name) + " " + std::to_string(*number) +
                             " is not known; known are " + words_of(field));
        }
    }
}

constexpr bool is_blank(char letter)
{
    return letter == ' ' || letter == '\t';
}

}  // namespace

std::string datagram_from_words(const std::vector<std::string>& words)
{
    if (words.empty()) {
        throw InputError("there is no message; send --list shows the types");
    }
    const MessageKind& kind = message_kind_named(words.front());
    const std::string payload = payload_from_words(kind, words);
    const MessageHeader header = {kind.type, static_cast<std::uint32_t>(payload.size())};
    std::string datagram(sizeof header, '\0');
    std::memcpy(datagram.data(), &header, sizeof header);
    return datagram + payload;
}

std::vector<std::string> doubts_about(std::string_view datagram)
{
    std::vector<std::string> doubts;
    if (datagram.size() >= message_slot_size) {
        doubts.push_back("the service takes only " + std::to_string(message_slot_size - 1) +
                         " of these " + std::to_string(datagram.size()) + " bytes");
    }
    MessageHeader header = {};
    std::memcpy(&header, datagram.data(), std::min(sizeof header, datagram.size()));
    const std::string_view payload = datagram.substr(std::min(sizeof header, datagram.size()));
    const Rows<MessageKind> kinds = message_kinds();
    const MessageKind* const kind =
        std::find_if(kinds.begin(), kinds.end(),
                     [&header](const MessageKind& row) { return row.type == header.type; });
    if (kind == kinds.end()) {
        doubts.push_back("the service knows no type " + std::to_string(header.type));
    } else if (kind->payload == PayloadKind::record &&
               (header.length != kind->record_size || payload.size() < kind->record_size)) {
        doubts.push_back(std::string(kind->name) + " has a payload of " +
                         std::to_string(kind->record_size) + " bytes");
    } else {
        add_doubts(*kind, payload, doubts);
    }
    return doubts;
}

std::string bytes_from_hex(std::string_view text)
{
    std::string bytes;
    for (std::size_t i = 0; i < text.size();) {
        if (is_blank(text[i])) {
            ++i;
            continue;
        }
        const std::string_view digits = text.substr(i, 2);
        const auto byte = number_in<unsigned char>(digits, 16);
        if (digits.size() < 2 || !byte) {
            throw InputError("not two hexadecimal digits a byte, at character " +
                             std::to_string(i + 1));
        }
        bytes += static_cast<char>(*byte);
        i += 2;
    }
    return bytes;
}

std::vector<std::string> split_words(std::string_view line)
{
    std::vector<std::string> words;
    bool is_inside = false;
    bool is_quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (is_blank(line[i]) && !is_quoted) {
            is_inside = false;
            continue;
        }
        if (!is_inside) {
            words.emplace_back();
            is_inside = true;
        }
        if (line[i] == '"') {
            is_quoted = !is_quoted;
            continue;
        }
        const std::string_view pair = line.substr(i, 2);
        if (is_quoted && (pair == "\\\"" || pair == "\\\\")) {
            ++i;
        }
        words.back() += line[i];
    }
    if (is_quoted) {
        throw InputError("a quote is not closed");
    }
    return words;
}

}  // namespace statusctl
