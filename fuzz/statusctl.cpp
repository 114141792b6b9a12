/// What statusctl reads. The first byte chooses a parser, the rest is its input.
#include <cstring>

#include "core/messages.h"
#include "fuzz/device.h"
#include "tools/statusctl/compose_datagram.h"
#include "tools/statusctl/diff.h"
#include "tools/statusctl/document_path.h"
#include "tools/statusctl/events.h"
#include "tools/statusctl/input_error.h"
#include "tools/statusctl/printable.h"
#include "tools/statusctl/safe_read.h"
#include "tools/statusctl/scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void require_printable(std::string_view text)
{
    for (const char letter : text) {
        require(static_cast<unsigned char>(letter) >= 0x20 && letter != 0x7F, "no control shows");
    }
}

void read_message(std::string_view text)
{
    const std::string message = statusctl::datagram_from_words(statusctl::split_words(text));
    MessageHeader header;
    std::memcpy(&header, message.data(), sizeof header);
    require(message.size() == sizeof header + header.length && message.size() < 1024,
            "the header gives the payload's length");
}

void read_hex(std::string_view text)
{
    const std::string bytes = statusctl::bytes_from_hex(text);
    require(bytes.size() <= text.size() / 2, "two digits make a byte");
}

void read_scenario(std::string_view text)
{
    for (const statusctl::ScenarioStep& step : statusctl::parse_scenario(text)) {
        require(step.wait.count() >= 0, "a wait is not negative");
    }
}

/// The first line is a path, the rest is a document that has it or has it not.
void read_path(std::string_view text)
{
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::vector<std::string> steps = statusctl::path_steps(text.substr(0, end));
    const statusctl::DocumentRead document =
        statusctl::parse_document(std::string(text.substr(end)));
    if (const Json::Value* value = statusctl::value_at(document.root, steps)) {
        require_printable(statusctl::printable_value(*value));
    }
}

/// Two documents, with a zero byte between them.
void read_difference(std::string_view text)
{
    const std::size_t end = std::min(text.find('\0'), text.size());
    const Json::Value before = statusctl::parse_document(std::string(text.substr(0, end))).root;
    const Json::Value after = statusctl::parse_document(std::string(text.substr(end))).root;
    const bool differs = !statusctl::differences(&before, &after).empty();
    require(differs == (before != after), "what differs is found, and nothing else");
    require(statusctl::differences(&before, &before).empty(), "a document equals itself");
}

void read_event(std::string_view text)
{
    const std::string_view name = statusctl::event_name(text);
    require(name.find('\0') == std::string_view::npos, "a zero byte ends the name");
}

constexpr void (*parsers[])(std::string_view) = {read_message, read_hex,        read_scenario,
                                                 read_path,    read_difference, read_event};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    require_printable(statusctl::printable(text));
    try {
        parsers[data[0] % std::size(parsers)](text);
    } catch (const statusctl::InputError& error) {
        require_printable(error.what());
    }
    return 0;
}
