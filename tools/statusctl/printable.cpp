#include "tools/statusctl/printable.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iomanip>
#include <sstream>

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
    constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};  // by the size
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t size = lead < 0x80   ? 1
                             : lead < 0xC0 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF8 ? 4
                                           : 0;
    std::uint32_t code_point = size == 1 ? lead : lead & (0x7FU >> size);
    for (std::size_t i = 1; i < size; ++i) {
        if (i >= text.size() || (static_cast<unsigned char>(text[i]) & 0xC0U) != 0x80) {
            return {0, 0};
        }
        code_point = code_point << 6U | (static_cast<unsigned char>(text[i]) & 0x3FU);
    }
    const bool is_surrogate = code_point >= 0xD800 && code_point <= 0xDFFF;
    const bool is_legal = code_point >= smallest[size] && code_point <= 0x10FFFF && !is_surrogate;
    return {code_point, is_legal ? size : 0};
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

std::string time_text(std::chrono::system_clock::time_point time, const char* format,
                      std::tm* (*to_parts)(const std::time_t*, std::tm*))
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts = {};
    to_parts(&seconds, &parts);
    std::array<char, 32> text = {};
    std::strftime(text.data(), text.size(), format, &parts);
    const auto since_epoch = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
    return text.data() + formatted(".%03u", static_cast<unsigned>(since_epoch.count() % 1000));
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

std::string padded(std::string text, std::size_t width)
{
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

std::string folded(std::string text, std::size_t width, std::size_t indentation)
{
    for (std::size_t begin = 0; text.size() > begin + width;) {
        const std::size_t blank = text.rfind(' ', begin + width);
        if (blank == std::string::npos || blank <= begin) {
            break;
        }
        text.replace(blank, 1, "\n" + std::string(indentation, ' '));
        begin = blank + 1 + indentation;
    }
    return text;
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
    if (!value.isString()) {
        return json_text(value, "", readable_digits);
    }
    std::ostringstream text;
    text << std::quoted(value.asString());
    return printable(text.str());
}

std::string clock_text(std::chrono::system_clock::time_point time)
{
    return time_text(time, "%H:%M:%S", localtime_r);
}

std::string utc_text(std::chrono::system_clock::time_point time)
{
    return time_text(time, "%Y-%m-%dT%H:%M:%S", gmtime_r) + "Z";
}

std::string styled(Style style, const std::string& text)
{
    static const bool colours = colours_wanted();
    return colours ? "\033[" + std::to_string(static_cast<int>(style)) + "m" + text + "\033[0m"
                   : text;
}

}  // namespace statusctl
