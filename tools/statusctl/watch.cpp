#include "tools/statusctl/watch.h"

#include <poll.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <iomanip>
#include <iostream>
#include <system_error>

#include "tools/statusctl/diff.h"
#include "tools/statusctl/documents.h"
#include "tools/statusctl/events.h"
#include "tools/statusctl/printable.h"
#include "tools/statusctl/safe_read.h"

namespace statusctl {

namespace {

using Clock = std::chrono::steady_clock;

/// What is known of a document.
struct Known {
    bool read = false;  // `root` is what was last read of it
    Json::Value root;
    std::string problem;  // why it can't be read now; empty where it can
};

std::string padded(const std::string& text, std::size_t width)
{
    return text + std::string(text.size() < width ? width - text.size() : 0, ' ');
}

/// Wide enough for all paths of the documents.
constexpr std::size_t path_width = 49;

/// Prints what one read of a document has brought.
struct Printer {
    const StatusDocument& document;
    bool json;
    std::chrono::system_clock::time_point time = std::chrono::system_clock::now();

    void line(const std::string& rest) const
    {
        std::cout << styled(Style::faint, clock_text(time)) << "  "
                  << styled(Style::name, padded(std::string(document.name), 8)) << "  " << rest
                  << std::endl;
    }

    void member(const std::string& path, const std::string& value) const
    {
        line(padded(printable(path), path_width) + "  " + value);
    }

    void object(Json::Value members) const
    {
        members["time"] = utc_text(time);
        members["document"] = std::string(document.name);
        std::cout << json_line(members) << std::endl;
    }
};

void print_problem(const Printer& printer, const std::string& problem)
{
    if (printer.json) {
        Json::Value members;
        members["problem"] = problem;
        printer.object(members);
    } else {
        printer.line(styled(Style::removed, "can't be read: " + printable(problem)));
    }
}

void print_state(const Printer& printer, const Json::Value& root)
{
    if (printer.json) {
        Json::Value members;
        members["state"] = root;
        printer.object(members);
        return;
    }
    for (const Change& member : differences(nullptr, &root)) {
        printer.member(member.path, printable_value(*member.after));
    }
}

std::string shown(const Json::Value* value)
{
    return value == nullptr ? "(none)" : printable_value(*value);
}

void print_change(const Printer& printer, const Change& change)
{
    if (!printer.json) {
        printer.member(change.path, styled(Style::removed, shown(change.before)) + " -> " +
                                        styled(Style::added, shown(change.after)));
        return;
    }
    Json::Value members;
    members["path"] = change.path;
    if (change.before != nullptr) {
        members["old"] = *change.before;
    }
    if (change.after != nullptr) {
        members["new"] = *change.after;
    }
    printer.object(members);
}

/// Reads the document anew and prints what is new about it; true where anything is.
bool refresh(const StatusDocument& document, Known& known, const WatchOptions& options)
{
    DocumentRead result = read_document_safely(document.path);
    const Printer printer = {document, options.json};
    if (result.state != ReadState::good) {
        const bool is_news = known.problem != result.reason;
        known.problem = result.reason;
        if (is_news) {
            print_problem(printer, known.problem);
        }
        return is_news;
    }
    known.problem.clear();
    std::vector<Change> changes;
    if (known.read) {
        changes = differences(&known.root, &result.root);
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

DocumentSet selected_documents(const std::vector<std::string>& names)
{
    DocumentSet documents;
    for (const std::string& name : names) {
        documents.set(document_named(name));
    }
    return names.empty() ? documents.set() : documents;
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
bool wait_for_hints(const Subscription& subscription, int end_signals, int timeout_ms)
{
    std::array<pollfd, 3> descriptors = {{{end_signals, POLLIN, 0},
                                          {subscription.changes, POLLIN, 0},
                                          {subscription.events, POLLIN, 0}}};
    return poll(descriptors.data(), descriptors.size(), timeout_ms) > 0 &&
           descriptors[0].revents == 0;
}

}  // namespace

int run_watch(const WatchOptions& options)
{
    const DocumentSet selected = selected_documents(options.documents);
    const auto deadline =
        Clock::now() + std::chrono::milliseconds(static_cast<std::int64_t>(options.seconds * 1000));
    const int end_signals = open_end_signals();
    // Before the first read, so that no change falls between the two.
    const Subscription subscription = subscribe();

    std::array<Known, std::size(status_documents)> known;
    std::size_t count = 0;
    for (DocumentSet due = selected;; due = selected & take_hints(subscription)) {
        for (std::size_t i = 0; i < known.size(); ++i) {
            if (due[i] && refresh(status_documents[i], known[i], options) &&
                ++count == options.count) {
                return 0;
            }
        }
        const int timeout = options.seconds > 0 ? milliseconds_until(deadline) : -1;
        if (!wait_for_hints(subscription, end_signals, timeout)) {
            return 0;
        }
    }
}

}  // namespace statusctl
