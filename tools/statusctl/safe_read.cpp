#include "tools/statusctl/safe_read.h"

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

DocumentRead read_locked(int descriptor, std::size_t size)
{
    // One byte more than there is: a read that fills it met a file that has grown.
    std::string text(size + 1, '\0');
    const ssize_t count = read(descriptor, text.data(), text.size());
    if (count < 0) {
        return failed_call();
    }
    text.resize(static_cast<std::size_t>(count));
    return parse_document(std::move(text));
}

DocumentRead read_open_file(int descriptor)
{
    struct stat status = {};
    if (flock(descriptor, LOCK_SH | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK ? failed(ReadState::locked, "locked by another process")
                                    : failed_call();
    }
    // Under the lock, so that the size is that of the text to come.
    if (fstat(descriptor, &status) != 0) {
        return failed_call();
    }
    if (!S_ISREG(status.st_mode)) {
        return failed(ReadState::unreadable, "not a regular file");
    }
    if (status.st_size > largest_document) {
        return failed(ReadState::unreadable, "larger than 16 MiB");
    }
    DocumentRead result = read_locked(descriptor, static_cast<std::size_t>(status.st_size));
    result.written = status.st_mtime;
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

DocumentRead parse_document(std::string text)
{
    DocumentRead result;
    result.text = std::move(text);
    if (result.text.find_first_not_of(" \t\r\n") == std::string::npos) {
        result.state = ReadState::empty;
        result.reason = "empty";
        return result;
    }
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    // The writer would show them with the value, over several lines and with all they hold.
    builder["collectComments"] = false;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    const char* const begin = result.text.data();
    try {
        if (reader->parse(begin, begin + result.text.size(), &result.root, &result.reason)) {
            result.reason.clear();
            return result;
        }
        result.reason = on_one_line(result.reason);
    } catch (const std::exception&) {
        // The parser gives up on deep nesting.
        result.reason = "nested too deeply";
    }
    result.root = Json::Value();
    result.state = ReadState::damaged;
    return result;
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
