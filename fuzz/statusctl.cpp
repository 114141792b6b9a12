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

using namespace statusctl;  // NOLINT(google-build-using-namespace): all of it is read here

void require_printable(std::string_view text)
{
    for (const char letter : text) {
        require(static_cast<unsigned char>(letter) >= 0x20 && letter != 0x7F, "no control shows");
    }
}

void read_message(std::string_view text)
{
    const std::string message = datagram_from_words(split_words(text));
    MessageHeader header;
    std::memcpy(&header, message.data(), sizeof header);
    require(message.size() == sizeof header + header.length && message.size() < 1024,
            "the header gives the payload's length");
}

/// Two documents with a zero byte between them; what the first has at a path, which is the
/// second's text, can be shown.
void read_documents(std::string_view text)
{
    const std::size_t end = std::min(text.find('\0'), text.size());
    const Json::Value before = parse_document(std::string(text.substr(0, end))).root;
    text.remove_prefix(std::min(end + 1, text.size()));
    const Json::Value after = parse_document(std::string(text)).root;
    require(differences(&before, &after).empty() == (before == after), "all that differs is found");
    if (const Json::Value* value = value_at(before, path_steps(text))) {
        require_printable(printable_value(*value));
    }
}

void read_any(std::uint8_t choice, std::string_view text)
{
    switch (choice % 5) {
        case 0:
            return read_message(text);
        case 1:
            return require(bytes_from_hex(text).size() <= text.size() / 2, "two digits a byte");
        case 2:
            return static_cast<void>(parse_scenario(text));
        case 3:
            return read_documents(text);
        default:
            require(event_name(text).find('\0') == std::string_view::npos, "a zero byte ends it");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size != 0) {
        const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
        require_printable(printable(text));
        try {
            read_any(data[0], text);
        } catch (const InputError& error) {
            require_printable(error.what());
        }
    }
    return 0;
}
