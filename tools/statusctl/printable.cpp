#include "tools/statusctl/printable.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <json/writer.h>

namespace statusctl {

namespace {

struct CodePoints {
    std::uint32_t first;
    std::uint32_t last;
};

/// What is never shown as it is.
constexpr CodePoints hidden_code_points[] = {
    {0x0000, 0x001F},    // C0 controls
    {0x007F, 0x009F},    // DEL and C1 controls
    {0x00AD, 0x00AD},    // soft hyphen
    {0x061C, 0x061C},    // Arabic letter mark
    {0x180E, 0x180E},    // Mongolian vowel separator
    {0x200B, 0x200F},    // zero width, direction marks
    {0x2028, 0x202E},    // line and paragraph separators, direction embeddings and overrides
    {0x2060, 0x206F},    // invisible operators, direction isolates
    {0xFEFF, 0xFEFF},    // byte order mark
    {0xFFF9, 0xFFFB},    // interlinear annotation
    {0xE0000, 0xE007F},  // tags
};

bool is_hidden(std::uint32_t code_point)
{
    return std::any_of(std::begin(hidden_code_points), std::end(hidden_code_points),
                       [code_point](const CodePoints& range) {
                           return code_point >= range.first && code_point <= range.last;
                       });
}

struct Decoded {
    std::uint32_t code_point;
    std::size_t size;  // bytes; 0 where the text doesn't start with well-formed UTF-8
};

/// Decodes the code point at the start of `text`, which isn't empty.
Decoded decode(std::string_view text)
{
    struct Form {
        unsigned char mask, lead;
        std::uint32_t smallest;
    };
    constexpr Form forms[] = {
        {0x80, 0x00, 0}, {0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};
    const auto lead = static_cast<unsigned char>(text.front());
    for (std::size_t size = 1; size <= std::size(forms); ++size) {
        const Form& form = forms[size - 1];
        if ((lead & form.mask) != form.lead) {
            continue;
        }
        std::uint32_t code_point = lead & static_cast<unsigned char>(~form.mask);
        for (std::size_t i = 1; i < size; ++i) {
            if (i >= text.size() || (static_cast<unsigned char>(text[i]) & 0xC0U) != 0x80) {
                return {0, 0};
            }
            code_point = code_point << 6U | (static_cast<unsigned char>(text[i]) & 0x3FU);
        }
        const bool surrogate = code_point >= 0xD800 && code_point <= 0xDFFF;
        const bool legal = code_point >= form.smallest && code_point <= 0x10FFFF && !surrogate;
        return {code_point, legal ? size : 0};
    }
    return {0, 0};
}

std::string formatted(const char* format, unsigned value)
{
    std::array<char, 16> text = {};
    std::snprintf(text.data(), text.size(), format, value);
    return text.data();
}

constexpr int exact_digits = 17;
constexpr int readable_digits = 15;  // 59.94 stays 59.94

std::string json_text(const Json::Value& value, const char* indentation, int digits)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = indentation;
    builder["precision"] = digits;
    const std::string text = Json::writeString(builder, value);
    // The writer escapes all control characters but this one.
    std::string result;
    for (const char letter : text) {
        result += letter == '\x7F' ? "\\u007f" : std::string(1, letter);
    }
    return result;
}

std::string quoted(std::string_view text)
{
    std::string result;
    for (const char letter : text) {
        result += letter == '"' || letter == '\\' ? "\\" : "";
        result += letter;
    }
    return '"' + printable(result) + '"';
}

std::string time_text(const std::tm& parts, const char* format,
                      std::chrono::system_clock::time_point time)
{
    std::array<char, 32> text = {};
    std::strftime(text.data(), text.size(), format, &parts);
    const auto since_epoch = time.time_since_epoch();
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(since_epoch) -
                              std::chrono::floor<std::chrono::seconds>(since_epoch);
    return text.data() + formatted(".%03u", static_cast<unsigned>(milliseconds.count()));
}

bool colours_wanted()
{
    const char* no_color = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && (no_color == nullptr || *no_color == '\0') &&
           terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

}  // namespace

std::string printable(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        const Decoded decoded = decode(text);
        const std::size_t size = decoded.size == 0 ? 1 : decoded.size;
        if (decoded.size == 0) {
            result += formatted("\\x%02x", static_cast<unsigned char>(text.front()));
        } else if (is_hidden(decoded.code_point)) {
            result +=
                formatted(decoded.code_point > 0xFFFF ? "\\U%08x" : "\\u%04x", decoded.code_point);
        } else {
            result += text.substr(0, size);
        }
        text.remove_prefix(size);
    }
    return result;
}

std::string json_line(const Json::Value& value)
{
    return json_text(value, "", exact_digits);
}

std::string json_lines(const Json::Value& value)
{
    return json_text(value, "    ", exact_digits);
}

std::string printable_value(const Json::Value& value)
{
    return value.isString() ? quoted(value.asString()) : json_text(value, "", readable_digits);
}

std::string clock_text(std::chrono::system_clock::time_point time)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts = {};
    localtime_r(&seconds, &parts);
    return time_text(parts, "%H:%M:%S", time);
}

std::string utc_text(std::chrono::system_clock::time_point time)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts = {};
    gmtime_r(&seconds, &parts);
    return time_text(parts, "%Y-%m-%dT%H:%M:%S", time) + "Z";
}

std::string styled(Style style, const std::string& text)
{
    static const bool colours = colours_wanted();
    return colours ? "\033[" + std::to_string(static_cast<int>(style)) + "m" + text + "\033[0m"
                   : text;
}

}  // namespace statusctl
