/// `statusctl check`: is all well with a running device's documents and with the service?
#include <linux/magic.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "core/paths.h"
#include "tools/statusctl/documents.h"
#include "tools/statusctl/printable.h"
#include "tools/statusctl/repair.h"
#include "tools/statusctl/schema_check.h"
#include "tools/statusctl/statusctl.h"
#include "tools/statusctl/system_state.h"

namespace statusctl {

namespace {

/// The service takes a lock and a netlink port for a moment only: what is still there after
/// this long is held by something else.
constexpr std::chrono::milliseconds passing(200);

// --- findings ---

int problems = 0;

void say_well(const std::string& subject, const std::string& state)
{
    std::cout << "ok       " << subject << ": " << state << '\n';
}

void say_problem(const std::string& subject, const std::string& state, const std::string& remedy)
{
    ++problems;
    std::cout << styled(Style::removed, "PROBLEM  ") << subject << ": " << state << "; " << remedy
              << '\n';
}

std::string file_name(const StatusDocument& document)
{
    return std::string(document.name) + ".json";
}

// --- the directory ---

/// Less than the service may need next counts as nothing.
constexpr std::uint64_t least_room = 64 << 10;

/// Why nothing can be written in a folder; empty where something can.
std::string write_problem(const std::string& folder)
{
    struct statvfs state = {};
    if (statvfs(folder.c_str(), &state) != 0) {
        return std::strerror(errno);
    }
    if ((state.f_flag & ST_RDONLY) != 0) {
        return "read-only";
    }
    // What has no limit has 0 of 0.
    const bool is_full =
        (state.f_blocks > 0 && std::uint64_t{state.f_bavail} * state.f_frsize < least_room) ||
        (state.f_files > 0 && state.f_favail == 0);
    return is_full ? "full" : "";
}

/// Whether the service can write there once it runs.
bool check_directory()
{
    struct statfs file_system = {};
    const bool is_there = statfs(status_directory, &file_system) == 0;
    // The field's size and sign differ between architectures.
    const auto type = static_cast<unsigned int>(file_system.f_type);
    if (!is_there) {
        say_problem(status_directory, std::strerror(errno), "the service makes it when it starts");
    } else if (const std::string problem = write_problem(status_directory); !problem.empty()) {
        say_problem(status_directory, problem,
                    "the service can't write documents: make room, or mount it to be written");
        return false;
    } else if (type != TMPFS_MAGIC && type != RAMFS_MAGIC) {
        say_problem(status_directory, "not in memory: each change of a document waits for a disk",
                    "mount a tmpfs on /run");
    } else {
        say_well(status_directory, "in memory");
    }
    return true;
}

// --- locks ---

/// The locks on a file that do not pass.
std::vector<std::string> lasting_locks(const struct stat& file)
{
    const std::vector<std::string> before = locks_on(file);
    if (before.empty()) {
        return {};
    }
    std::this_thread::sleep_for(passing);
    std::vector<std::string> lasting = locks_on(file);
    const auto has_come = [&before](const std::string& lock) {
        return std::find(before.begin(), before.end(), lock) == before.end();
    };
    lasting.erase(std::remove_if(lasting.begin(), lasting.end(), has_come), lasting.end());
    return lasting;
}

/// Whether a process keeps a document locked: the service waits for it, and all messages wait
/// behind that.
bool check_locks(const StatusDocument& document)
{
    struct stat file = {};
    if (stat(document.path, &file) != 0) {
        return false;
    }
    const std::vector<std::string> locks = lasting_locks(file);
    for (const std::string& lock : locks) {
        say_problem(file_name(document), lock,
                    "the service waits until that process unlocks it or ends");
    }
    return !locks.empty();
}

// --- documents ---

/// How long ago a document was written, in the largest unit that fits.
std::string age_text(const StatusDocument& document)
{
    struct stat file = {};
    stat(document.path, &file);
    const std::time_t seconds = std::max<std::time_t>(0, std::time(nullptr) - file.st_mtime);
    const struct {
        std::time_t seconds;
        const char* name;
    } units[] = {{86400, " days ago"}, {3600, " hours ago"}, {60, " minutes ago"}};
    for (const auto& unit : units) {
        if (seconds >= 2 * unit.seconds) {
            return "written " + std::to_string(seconds / unit.seconds) + unit.name;
        }
    }
    return "written " + std::to_string(seconds) + " seconds ago";
}

void check_good_document(const StatusDocument& document, const DocumentRead& result)
{
    const std::vector<std::string> findings = validate_document(file_name(document), result.root);
    for (const std::string& finding : findings) {
        say_problem(file_name(document), printable(finding),
                    "something else than the service has written it; remove it and start the "
                    "service again");
    }
    if (findings.empty()) {
        const bool is_seed = result.text == *document.default_text;
        say_well(file_name(document), "valid, " + age_text(document) +
                                          (is_seed ? ", as seeded: nothing reported yet" : ""));
    }
}

void check_document(const StatusDocument& document, bool can_be_written)
{
    const DocumentRead result = read_document_safely(document);
    const std::string first = can_be_written ? "" : "make its folder writable, then ";
    switch (result.state) {
        case ReadState::good:
            check_good_document(document, result);
            break;
        case ReadState::missing:
            say_problem(
                file_name(document), printable(result.reason),
                first + "start the service again, which seeds it, and have all reported anew");
            break;
        case ReadState::empty:
        case ReadState::damaged:
            say_problem(file_name(document), printable(result.reason) + ", " + age_text(document),
                        first +
                            "stop the service, statusctl check --repair, start it again, and have "
                            "all reported anew");
            break;
        case ReadState::unreadable:
            say_problem(file_name(document), printable(result.reason),
                        "look at what stands there and at its rights");
            break;
        case ReadState::locked:  // by whom is told with the locks
            break;
    }
    if (!check_locks(document) && result.state == ReadState::locked) {
        say_problem(file_name(document), printable(result.reason),
                    "by one that can't be seen from here, as in another container");
    }
}

// --- the log ---

/// The last line of the log about dropped messages since the service started, and so made its
/// socket; empty where there is none.
std::string last_drop(const std::string& log)
{
    struct stat made = {};
    stat(message_socket_path, &made);
    char start[32] = "";
    std::strftime(start, sizeof start, "%Y-%m-%d %H:%M:%S", std::localtime(&made.st_mtime));
    std::string last;
    std::ifstream file(log);
    for (int older = 1; file && last.empty(); ++older) {
        for (std::string line; std::getline(file, line);) {
            if (line.find("Message queue overflow") != std::string::npos && line >= start) {
                last = line;
            }
        }
        file = std::ifstream(log + "." + std::to_string(older));
    }
    return last;
}

void check_log()
{
    std::ifstream configuration(log_configuration_path);
    if (!configuration) {
        say_problem(log_configuration_path, std::strerror(errno),
                    "the log goes to standard error; install it and start the service again");
    }
    std::string log;
    for (std::string line; std::getline(configuration, line);) {
        const std::size_t name = line.find(".fileName=");
        if (line.substr(0, 1) != "#" && name != std::string::npos) {
            log = line.substr(line.find('=') + 1);
        }
    }
    if (log.empty()) {  // it goes elsewhere
        return;
    }
    const std::string folder = log.substr(0, log.rfind('/'));
    const std::string drop = last_drop(log);
    if (const std::string problem = write_problem(folder); !problem.empty()) {
        say_problem(folder, problem, "nothing is logged; mend that and start the service again");
    } else if (drop.empty()) {
        say_well(log, "tells of no dropped message");
    } else {
        say_problem(log, "since its start the service has dropped messages: " + printable(drop),
                    "have all reported anew, and let senders pace what they send");
    }
}

// --- the service ---

void check_socket()
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, message_socket_path, sizeof address.sun_path - 1);
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    // Connecting sends nothing.
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        say_well(message_socket_path, "takes messages");
    } else if (errno == EACCES) {
        say_problem(message_socket_path, std::strerror(errno), "check as a user who may send");
    } else {
        const std::string reason = std::strerror(errno);
        say_problem(message_socket_path, reason,
                    processes_named(service_name).empty()
                        ? "start the service"
                        : "start the service again: a second one has taken its socket and ended");
    }
    close(descriptor);
}

/// The service's process id is the netlink port that it sends its events from, bound to their
/// group, which is a privilege.
void check_event_port(pid_t service)
{
    const std::string subject = "events of " + process_text(service);
    if (!may_send_events(service)) {
        say_problem(subject, "it lacks CAP_NET_ADMIN", "no event goes out; start it with that");
        return;
    }
    const std::optional<ino_t> before = socket_on_event_port(service);
    if (before) {
        std::this_thread::sleep_for(passing);
    }
    if (!before || socket_on_event_port(service) != before) {
        say_well(subject, "their netlink port is free");
        return;
    }
    const std::optional<pid_t> owner = process_with_socket(*before);
    say_problem(subject,
                "their netlink port is taken by " + (owner ? process_text(*owner) : "a socket"),
                "no event goes out; end that process, or start the service again");
}

void check_service()
{
    const std::vector<pid_t> services = processes_named(service_name);
    if (services.empty()) {
        say_problem(service_name, "is not running", "start it");
    }
    if (services.size() > 1) {
        say_problem(service_name, "runs " + std::to_string(services.size()) + " times",
                    "stop all and start one: only the last has the socket, all write documents");
    }
    for (const pid_t service : services) {
        say_well(service_name, process_text(service));
        check_event_port(service);
    }
}

int run_check(const Arguments& arguments)
{
    if (arguments.has("repair")) {
        repair();
        return 0;  // always: it stands before a start of the service, which it must never prevent
    }
    const bool can_be_written = check_directory();
    for (const StatusDocument& document : status_documents) {
        check_document(document, can_be_written);
    }
    check_log();
    check_socket();
    check_service();
    return problems == 0 ? 0 : 1;
}

constexpr option options[] = {help_option, {"repair", no_argument, nullptr, 0}, {}};

}  // namespace

const Command check_command = {"check",
                               "Look over the documents and the service; a line a finding",
                               R"(statusctl check [--repair]
  --repair   Before a start: remove documents that do not parse, and nothing else
)",
                               options,
                               0,
                               false,
                               run_check};

}  // namespace statusctl
