/// The end-to-end tests' one way to the service: the real executable, started anew for each
/// case, reached as its world reaches it, through its socket, documents, log and events.
///
/// The paths are the service's own, so the tests belong into private namespaces
/// (scripts/sandbox) or onto a device of their own, and need the rights of root there.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json/value.h>

#include "core/messages.h"
#include "core/paths.h"

constexpr const char* log_path = "/var/log/status_json_service/status_json_service.log";

using Action = std::function<void()>;
using Lines = std::vector<std::string>;

/// Waits, in short steps, until `holds` does; fails the case where that takes a minute.
bool wait_until(const std::string& what, const std::function<bool()>& holds);

/// The text of a file from a byte on; empty where it can't be read.
std::string read_file(const std::string& path, std::uintmax_t offset = 0);
/// Writes a file anew, in the folder that is there.
void write_file(const std::string& path, const std::string& text);

/// The value of a text; null where it is no JSON.
Json::Value parsed(const std::string& text);

/// The executable under test: STATUS_JSON_SERVICE of the environment, or the one beside this.
std::string service_path();
/// Whether the environment names one: a program that runs the service under a checker.
bool has_stand_in();

/// Has the process that is to be the service run under strace, in its words.
Action under_strace(const std::string& options);

/// A subscriber of the events from its construction on. Every event is checked to be a message of
/// 1,040 bytes with nothing but zeros behind the name.
class EventListener {
public:
    EventListener();
    ~EventListener();
    EventListener(const EventListener&) = delete;
    EventListener& operator=(const EventListener&) = delete;

    /// The name of the next event; fails the case and gives "" where none comes for a minute.
    std::string wait();
    /// The names of the events that have come and were not yet taken. Does not wait.
    Lines take_names();

private:
    bool comes_within(int milliseconds) const;
    std::string receive() const;

    int descriptor_;
};

/// A running service for each case. It must live until the case ends and must leave nothing
/// on its standard error that the case has not taken.
class ServiceTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // --- the process ---

    /// Starts the service and waits until its socket takes messages; `prepare` as in `launch`.
    void start(const Action& prepare = [] {});
    /// Starts the service and does not wait; `prepare` runs in the process before it.
    void launch(const Action& prepare = [] {});
    /// Checks that the service still runs, and kills it. Its documents and its log stay.
    void stop();
    /// Waits until the service ends by itself; gives its exit status, -1 where it was killed.
    int wait_exit();
    pid_t service_pid() const { return pid_; }
    /// What the service wrote to standard error since the last call.
    std::string take_standard_error();

    // --- messages ---

    /// Sends one datagram as it is.
    static void send(const std::string& datagram);
    /// Sends a text with its true length, without a zero byte.
    static void send_text(std::uint32_t type, const std::string& text);
    /// Sends a message in the words of `statusctl send`; with "text TYPE ..." any text, with
    /// "raw ..." the bytes of these hexadecimal digits, and with "1080p60 FIELD=VALUE ..." the
    /// report of this timing but for the fields given.
    static void send_line(const std::string& line);
    /// Waits until all that was sent has been worked through, documents and direct events
    /// included.
    void settle() const;

    static void wait_logged(const std::string& message);
    /// The messages that the log gains while `action` runs and what it sent is worked through.
    /// Each line is checked to have its time, priority, category and place in the source.
    Lines logged_by(const Action& action) const;

    // --- the documents, by the names of their files: "inputs.json" ---

    static std::string path_of(const std::string& name);
    static std::string text_of(const std::string& name) { return read_file(path_of(name)); }
    /// The texts of all documents that there are, by name.
    static std::map<std::string, std::string> texts();
    /// Replaces a document's text, in place.
    static void write_document(const std::string& name, const std::string& text);
    /// The parsed document. Whole numbers are of the kind `Json::intValue`: compare them with
    /// signed numbers.
    static Json::Value document(const std::string& name);

    /// Hears every event since before the service was started.
    EventListener events;

private:
    pid_t pid_ = -1;
    int standard_error_ = -1;
    std::size_t standard_error_taken_ = 0;
};

/// For cases that prepare the world first: nothing runs until the case says `start()`.
class StoppedServiceTest : public ServiceTest {
protected:
    void SetUp() override;
};
