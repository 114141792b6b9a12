/// `statusctl watch`: the documents' state, and every change of it.
#include <poll.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <system_error>
#include <utility>

#include "client/client.h"
#include "tools/statusctl/documents.h"
#include "tools/statusctl/printable.h"
#include "tools/statusctl/statusctl.h"
#include "tools/statusctl/watch.h"

namespace statusctl {

namespace {

using Clock = std::chrono::steady_clock;

using Watch = std::unique_ptr<status_json_watch, decltype(&status_json_watch_close)>;

// --- what has changed ---

struct Change {
    std::string path;
    const Json::Value* before;  // null where the member was not there
    const Json::Value* after;   // null where it is there no longer
};

/// Whether both states are looked into rather than compared as they are.
bool both_are(Json::ValueType type, const Json::Value* before, const Json::Value* after)
{
    bool has_entries = false;
    for (const Json::Value* state : {before, after}) {
        if (state != nullptr && state->type() != type) {
            return false;
        }
        has_entries = has_entries || (state != nullptr && !state->empty());
    }
    return has_entries;
}

/// Appends the members that differ, each by itself, in the order of their paths. Either state may
/// be null, for none at all; the changes point into both. Goes no deeper than the parser lets a
/// document be.
void add_changes(const std::string& path, const Json::Value* before, const Json::Value* after,
                 std::vector<Change>& changes)
{
    const bool in_object = both_are(Json::objectValue, before, after);
    if (!in_object && !both_are(Json::arrayValue, before, after)) {
        if (before == nullptr || after == nullptr || *before != *after) {
            changes.push_back({path, before, after});
        }
        return;
    }
    // By position in an array and by name in an object.
    std::map<std::pair<Json::ArrayIndex, std::string>, std::array<const Json::Value*, 2>> members;
    for (const std::size_t side : {0U, 1U}) {
        static const Json::Value nothing(Json::objectValue);
        const Json::Value* const given = side == 0 ? before : after;
        const Json::Value& state = given == nullptr ? nothing : *given;
        for (auto member = state.begin(); member != state.end(); ++member) {
            members[{in_object ? 0 : member.index(), member.name()}][side] = &*member;
        }
    }
    for (const auto& [step, states] : members) {
        const auto& [position, name] = step;
        std::string place = path;
        if (in_object) {
            place.append(path.empty() ? "" : ".").append(name);
        } else {
            place.append("[").append(std::to_string(position)).append("]");
        }
        add_changes(place, states[0], states[1], changes);
    }
}

// --- how it is shown ---

/// Wide enough for all paths of the documents.
constexpr std::size_t path_width = 49;

/// Prints what one read of a document has brought.
struct Printer {
    const StatusDocument& document;
    bool json;
    std::chrono::system_clock::time_point time = std::chrono::system_clock::now();

    /// A line: an object with these members for programs, or this text for people.
    void line(Json::Value members, const std::string& text) const
    {
        members["time"] = utc_text(time);
        members["document"] = std::string(document.name);
        std::cout << (json ? json_line(members)
                           : styled(Style::faint, clock_text(time)) + "  " +
                                 styled(Style::name, padded(std::string(document.name), 8)) + "  " +
                                 text)
                  << std::endl;
    }
};

std::string member_text(const std::string& path, const std::string& value)
{
    return padded(printable(path), path_width) + "  " + value;
}

void print_problem(const Printer& printer, const std::string& problem)
{
    Json::Value members;
    members["problem"] = problem;
    printer.line(members, styled(Style::removed, "can't be read: " + printable(problem)));
}

void print_state(const Printer& printer, const Json::Value& root)
{
    if (printer.json) {
        Json::Value members;
        members["state"] = root;
        printer.line(members, "");
        return;
    }
    std::vector<Change> changes;
    add_changes("", nullptr, &root, changes);
    for (const Change& change : changes) {
        printer.line(Json::Value(), member_text(change.path, printable_value(*change.after)));
    }
}

void print_change(const Printer& printer, const Change& change)
{
    const auto text = [](const Json::Value* value) {
        return value == nullptr ? "(none)" : printable_value(*value);
    };
    Json::Value members;
    members["path"] = change.path;
    if (change.before != nullptr) {
        members["old"] = *change.before;
    }
    if (change.after != nullptr) {
        members["new"] = *change.after;
    }
    printer.line(members,
                 member_text(change.path, styled(Style::removed, text(change.before)) + " -> " +
                                              styled(Style::added, text(change.after))));
}

// --- the watch ---

/// What is known of a document.
struct Known {
    bool read = false;  // `root` is what was last read of it
    Json::Value root;
    std::string problem;  // why it can't be read now; empty where it can
};

/// Reads the document anew and prints what is new about it; true where anything is.
bool refresh(const StatusDocument& document, Known& known, const WatchOptions& options)
{
    DocumentRead result = read_document_safely(document);
    const Printer printer = {document, options.json};
    const bool has_new_problem = known.problem != result.reason && !result.reason.empty();
    known.problem = result.reason;
    if (result.state != ReadState::good) {
        if (has_new_problem) {
            print_problem(printer, known.problem);
        }
        return has_new_problem;
    }
    std::vector<Change> changes;
    if (known.read) {
        add_changes("", &known.root, &result.root, changes);
        for (const Change& change : changes) {
            print_change(printer, change);
        }
    } else if (!options.changes_only) {
        print_state(printer, result.root);
    }
    known.read = true;
    known.root = std::move(result.root);
    return !changes.empty();
}

WatchOptions options_of(const Arguments& arguments)
{
    WatchOptions options;
    for (const std::string& name : arguments.words) {
        options.documents.set(document_named(name));
    }
    if (arguments.words.empty()) {
        options.documents.set();
    }
    options.json = arguments.has("json");
    options.changes_only = arguments.has("changes-only");
    if (arguments.has("count")) {
        const auto count = number_in<std::size_t>(arguments.value("count"));
        if (!count) {
            throw InputError("Could not convert: --count = " + printable(arguments.value("count")));
        }
        options.count = *count;
    }
    if (arguments.has("for")) {
        const std::string limit = arguments.value("for");
        char* rest = nullptr;
        const double seconds = std::strtod(limit.c_str(), &rest);
        if (!(*rest == '\0' && seconds >= 0.001 && seconds <= 1e6)) {
            throw InputError("--for: Value " + printable(limit) +
                             " not in range 0.001000 to 1000000.000000");
        }
        options.limit = std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
    }
    return options;
}

int open_end_signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

int milliseconds_until(Clock::time_point deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 1 << 30));
}

/// Waits for something to come in; false where it is time to end.
bool wait_for_hints(const Watch& watch, int end_signals, int timeout_ms)
{
    std::array<pollfd, 2> descriptors = {
        {{end_signals, POLLIN, 0}, {status_json_watch_fd(watch.get()), POLLIN, 0}}};
    return poll(descriptors.data(), descriptors.size(), timeout_ms) > 0 &&
           descriptors[0].revents == 0;
}

}  // namespace

std::size_t watch_documents(const WatchOptions& options, const std::function<bool()>& once_read)
{
    const int end_signals = open_end_signals();
    // Before the first read, so that no change falls between the two.
    const Watch watch(status_json_watch_open(), status_json_watch_close);
    if (watch == nullptr) {
        throw std::system_error(errno, std::generic_category(), "can't watch the documents");
    }
    std::array<Known, std::size(status_documents)> known;
    std::size_t count = 0;
    std::size_t count_at_first = 0;
    Clock::time_point deadline;
    for (DocumentSet due = options.documents;;
         due = options.documents & DocumentSet(status_json_watch_take(watch.get()))) {
        for (std::size_t i = 0; i < known.size(); ++i) {
            if (due[i] && refresh(status_documents[i], known[i], options) &&
                ++count == options.count) {
                return count - count_at_first;
            }
        }
        if (deadline == Clock::time_point()) {
            if (!once_read()) {
                return 0;
            }
            count_at_first = count;
            deadline = Clock::now() + options.limit;
        }
        const int timeout = options.limit.count() > 0 ? milliseconds_until(deadline) : -1;
        if (!wait_for_hints(watch, end_signals, timeout)) {
            return count - count_at_first;
        }
    }
}

namespace {

int run_watch(const Arguments& arguments)
{
    watch_documents(options_of(arguments), [] { return true; });
    return 0;
}

constexpr option options[] = {help_option,
                              {"json", no_argument, nullptr, 0},
                              {"changes-only", no_argument, nullptr, 0},
                              {"count", required_argument, nullptr, 0},
                              {"for", required_argument, nullptr, 0},
                              {}};

}  // namespace

const Command watch_command = {
    "watch",
    "Show the documents' state, and then what changes",
    R"(statusctl watch [--json] [--changes-only] [--count CHANGES] [--for SECONDS] [DOCUMENT...]
  DOCUMENT        A document by its name; all of them by default
  --json          Show an object a line, for programs
  --changes-only  Leave out the state at the start
  --count         End when so many changes of documents were shown
  --for           End after so many seconds
)",
    options,
    any_number,
    false,
    run_watch};

}  // namespace statusctl
