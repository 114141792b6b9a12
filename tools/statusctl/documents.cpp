#include "tools/statusctl/documents.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>
#include <sstream>
#include <thread>

#include <json/reader.h>

#include "tools/statusctl/printable.h"
#include "tools/statusctl/statusctl.h"

namespace statusctl {

namespace {

constexpr std::chrono::milliseconds pause_between_reads(2);
constexpr off_t largest_document = 16 << 20;

DocumentRead failed(ReadState state, const std::string& reason)
{
    DocumentRead result;
    result.state = state;
    result.reason = reason;
    return result;
}

DocumentRead failed_call()
{
    return failed(errno == ENOENT ? ReadState::missing : ReadState::unreadable,
                  std::strerror(errno));
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

DocumentRead read_open_file(int descriptor)
{
    if (flock(descriptor, LOCK_SH | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK ? failed(ReadState::locked, "locked by another process")
                                    : failed_call();
    }
    // Under the lock, so that the size is that of the text to come.
    struct stat status = {};
    if (fstat(descriptor, &status) != 0) {
        return failed_call();
    }
    if (!S_ISREG(status.st_mode)) {
        return failed(ReadState::unreadable, "not a regular file");
    }
    if (status.st_size > largest_document) {
        return failed(ReadState::unreadable, "larger than 16 MiB");
    }
    DocumentRead result;
    result.written = status.st_mtime;
    // One byte more than there is: a read that fills it met a file that has grown.
    result.text.resize(static_cast<std::size_t>(status.st_size) + 1);
    const ssize_t count = read(descriptor, result.text.data(), result.text.size());
    if (count < 0) {
        return failed_call();
    }
    result.text.resize(static_cast<std::size_t>(count));
    parse(result);
    return result;
}

DocumentRead read_once(const char* path)
{
    // Without blocking: what stands there may be a pipe.
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        return failed_call();
    }
    DocumentRead result = read_open_file(descriptor);
    close(descriptor);  // and so unlock
    return result;
}

bool passes(ReadState state)
{
    return state == ReadState::locked || state == ReadState::empty || state == ReadState::damaged;
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

DocumentRead read_document_safely(const char* path, std::chrono::milliseconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (;;) {
        DocumentRead result = read_once(path);
        if (!passes(result.state) || std::chrono::steady_clock::now() >= deadline) {
            return result;
        }
        std::this_thread::sleep_for(pause_between_reads);
    }
}

}  // namespace statusctl
