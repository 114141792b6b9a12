#include "tools/statusctl/documents.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <sstream>

#include <json/reader.h>

#include "client/client.h"
#include "tools/statusctl/printable.h"
#include "tools/statusctl/statusctl.h"

namespace statusctl {

namespace {

status_json_document position_of(const StatusDocument& document)
{
    int position = 0;
    while (document.name != status_documents[position].name) {
        ++position;
    }
    return static_cast<status_json_document>(position);
}

/// The parser's complaint, which stands on several lines, on one.
std::string on_one_line(const std::string& complaint)
{
    std::istringstream words(complaint);
    std::string line;
    for (std::string word; words >> word;) {
        if (word != "*") {
            line += (line.empty() ? "" : " ") + word;
        }
    }
    return line;
}

/// Parses `result.text` into the rest of the result.
void parse(DocumentRead& result)
{
    if (result.text.find_first_not_of(" \t\r\n") == std::string::npos) {
        result.state = ReadState::empty;
        result.reason = "empty";
        return;
    }
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    // The writer would show them with the value, over several lines and with all they hold.
    builder["collectComments"] = false;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    const char* const begin = result.text.data();
    try {
        if (reader->parse(begin, begin + result.text.size(), &result.root, &result.reason)) {
            return;
        }
        result.reason = on_one_line(result.reason);
    } catch (const std::exception&) {
        // The parser gives up on deep nesting.
        result.reason = "nested too deeply";
    }
    result.root = Json::Value();
    result.state = ReadState::damaged;
}

std::string reason_of(int error)
{
    switch (error) {
        case EINVAL:
            return "not a regular file";
        case EFBIG:
            return "larger than 16 MiB";
        default:
            return std::strerror(error);
    }
}

}  // namespace

std::string document_names()
{
    std::string names;
    for (const StatusDocument& document : status_documents) {
        names += " " + std::string(document.name);
    }
    return names;
}

std::size_t document_named(std::string_view name)
{
    for (std::size_t i = 0; i < std::size(status_documents); ++i) {
        const std::string known(status_documents[i].name);
        if (name == known || name == known + ".json") {
            return i;
        }
    }
    throw InputError("there is no document " + printable(name) + "; there are" + document_names());
}

DocumentRead read_document_safely(const StatusDocument& document,
                                  std::chrono::milliseconds patience)
{
    DocumentRead result;
    std::size_t length = 0;
    status_json_state state = STATUS_JSON_WHOLE;
    const std::unique_ptr<char, decltype(&std::free)> text(
        status_json_examine(position_of(document), static_cast<int>(patience.count()), &length,
                            &state),
        std::free);
    if (text == nullptr) {
        result.state = errno == ENOENT ? ReadState::missing : ReadState::unreadable;
        result.reason = reason_of(errno);
    } else if (state == STATUS_JSON_LOCKED) {
        result.state = ReadState::locked;
        result.reason = "locked by another process";
    } else {
        result.text.assign(text.get(), length);
        parse(result);
    }
    return result;
}

}  // namespace statusctl
