/// `statusctl send`: messages to the service, one by one or from a scenario.
///
/// A scenario is a text that plays a device's day, a line a step. It can send, wait and speak; it
/// runs nothing:
///
///     # a comment, and empty lines, are left out
///     say A source is plugged in
///     link_status port=HDMI isConnect=1
///     power_status "1"
///     raw 06000000 00000000
///     wait 500ms
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iostream>
#include <thread>

#include "client/client.h"
#include "core/messages.h"
#include "core/paths.h"
#include "tools/statusctl/compose_datagram.h"
#include "tools/statusctl/documents.h"
#include "tools/statusctl/message_types.h"
#include "tools/statusctl/printable.h"
#include "tools/statusctl/statusctl.h"
#include "tools/statusctl/watch.h"

namespace statusctl {

namespace {

using std::chrono::milliseconds;

// --- what is to be sent ---

struct Step {
    enum class Kind { message, wait, heading };
    Kind kind;
    std::string text;      // the line; of a heading what it says
    std::string datagram;  // of a message
    milliseconds wait{0};
};

constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

constexpr std::uint64_t longest_wait_ms = 3600000;

milliseconds wait_from_text(std::string_view text)
{
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    const auto number = number_in<std::uint32_t>(text.substr(0, digits));
    const std::string_view unit = text.substr(digits);
    const std::uint64_t wait_ms = std::uint64_t{number.value_or(0)} * (unit == "s" ? 1000 : 1);
    if (!number || (unit != "s" && unit != "ms") || wait_ms > longest_wait_ms) {
        throw InputError(printable(text) + " is no time such as 500ms or 2s, up to an hour");
    }
    return milliseconds(wait_ms);
}

Step step_from_line(const std::string& line)
{
    const std::size_t end = std::min(line.find_first_of(blanks), line.size());
    const std::string verb = line.substr(0, end);
    const std::string rest(trimmed(std::string_view(line).substr(end)));
    if (verb == "say") {
        return {Step::Kind::heading, rest, "", {}};
    }
    if (verb == "wait") {
        return {Step::Kind::wait, line, "", wait_from_text(rest)};
    }
    return {Step::Kind::message,
            line,
            verb == "raw" ? bytes_from_hex(rest) : datagram_from_words(split_words(line)),
            {}};
}

std::vector<Step> steps_of_scenario(const std::string& path)
{
    std::ifstream file;
    if (path != "-") {
        file.open(path);
    }
    std::istream& stream = path == "-" ? std::cin : file;
    std::vector<Step> steps;
    std::size_t number = 0;
    for (std::string text; std::getline(stream, text);) {
        const std::string line(trimmed(text));
        ++number;
        try {
            if (!line.empty() && line.front() != '#') {
                steps.push_back(step_from_line(line));
            }
        } catch (const InputError& error) {
            throw InputError("line " + std::to_string(number) + ": " + error.what());
        }
    }
    if (!stream.eof()) {
        throw InputError("can't read " + printable(path) + ": " + std::strerror(errno));
    }
    return steps;
}

std::vector<Step> steps_of(const Arguments& arguments)
{
    if (arguments.has("file")) {
        return steps_of_scenario(arguments.value("file"));
    }
    return {{Step::Kind::message,
             "",
             arguments.has("raw") ? bytes_from_hex(arguments.value("raw"))
                                  : datagram_from_words(arguments.words),
             {}}};
}

// --- sending it ---

constexpr int full_queue_patience_ms = 2000;

std::string reason_of(int error)
{
    switch (error) {
        case ENOENT:
        case ECONNREFUSED:
            return "the service is not there";
        case EAGAIN:
            return "the service's receive queue stays full";
        default:
            return std::strerror(error);
    }
}

/// Sends one datagram; where that fails, says why on standard error and gives false.
bool send_datagram(const std::string& datagram)
{
    if (status_json_send_datagram(datagram.data(), datagram.size(), full_queue_patience_ms) == 0) {
        return true;
    }
    std::cerr << "statusctl: can't send to " << message_socket_path << ": " << reason_of(errno)
              << '\n';
    return false;
}

bool play(const Step& step, bool echo)
{
    switch (step.kind) {
        case Step::Kind::heading:
            std::cout << styled(Style::heading, "== " + printable(step.text)) << std::endl;
            return true;
        case Step::Kind::wait:
            std::this_thread::sleep_for(step.wait);
            return true;
        case Step::Kind::message:
            break;
    }
    if (echo) {
        std::cout << styled(Style::faint, clock_text(std::chrono::system_clock::now()))
                  << "  send  " << folded(printable(step.text), 80, 20) << std::endl;
    }
    if (!send_datagram(step.datagram)) {
        return false;
    }
    for (const std::string& doubt : doubts_about(step.datagram)) {
        std::cerr << "statusctl: warning: " << doubt << '\n';
    }
    return true;
}

// --- what becomes of it ---

/// Why a message has changed nothing, as far as the documents tell.
std::string likely_reason(std::string_view datagram)
{
    constexpr std::uint32_t about_an_input[] = {
        MSG_TYPE_VIDEO_STATUS, MSG_TYPE_HDCP_STATUS,     MSG_TYPE_VIDEO_TIMING,
        MSG_TYPE_AUDIO_STATUS, MSG_TYPE_HDMI_VIDEO_MODE, MSG_TYPE_VIDEO_START_WORKING};
    MessageHeader header = {};
    if (datagram.size() > sizeof header) {
        std::memcpy(&header, datagram.data(), sizeof header);
        const char port = datagram[sizeof header];
        const char* const input = port == 1 || port == '1' ? "inputs[1]" : "inputs[0]";
        const Json::Value video = Json::Path(std::string(input) + ".video")
                                      .resolve(read_document_safely(inputs_document).root);
        // A link that has not been reported yet is false as well, but then reports are taken.
        const bool is_down =
            video.isObject() && video["connected"] == false && video["signal_present"] == false;
        if (is_down &&
            std::count(std::begin(about_an_input), std::end(about_an_input), header.type) > 0) {
            return std::string(input) +
                   ".video.connected is false, and while a link is down, "
                   "reports about its input are dropped";
        }
    }
    return "it is what the documents say already, or the service's log has the reason";
}

/// Sends a message and shows for a second what the documents make of it.
bool show(const Step& step)
{
    WatchOptions options;
    options.documents.set();
    options.changes_only = true;
    options.limit = std::chrono::seconds(1);
    bool is_sent = false;
    const auto send = [&] { return is_sent = play(step, false); };
    if (watch_documents(options, send) == 0 && is_sent) {
        std::cout << "nothing changed within a second: " << likely_reason(step.datagram) << '\n';
    }
    return is_sent;
}

// --- the command ---

void require_options_that_go_together(const Arguments& arguments)
{
    constexpr const char* ways[] = {"list", "raw", "file"};
    std::string given;
    for (const char* way : ways) {
        if (arguments.has(way) && !given.empty()) {
            throw InputError(given + " excludes --" + way);
        }
        given = arguments.has(way) ? std::string("--") + way : given;
    }
    if (arguments.has("echo") && !arguments.has("file")) {
        throw InputError("--echo requires --file");
    }
    if (arguments.has("show") && (arguments.has("file") || arguments.has("list"))) {
        throw InputError(given + " excludes --show");
    }
    if (!given.empty() && arguments.words.size() > (given == "--list" ? 1 : 0)) {
        throw InputError("a message in words does not go with " + given);
    }
}

/// Nothing is sent unless all of it is right.
int run_send(const Arguments& arguments)
{
    require_options_that_go_together(arguments);
    if (arguments.has("list")) {
        std::cout << list_of_messages(
            arguments.words.empty()
                ? message_kinds()
                : Rows<MessageKind>(&message_kind_named(arguments.words[0]), 1));
        return 0;
    }
    const std::vector<Step> steps = steps_of(arguments);
    if (arguments.has("show")) {
        return show(steps.front()) ? 0 : 1;
    }
    const bool echo = arguments.has("echo");
    for (const Step& step : steps) {
        if (!play(step, echo)) {
            return 1;
        }
    }
    return 0;
}

constexpr option options[] = {help_option,
                              {"list", no_argument, nullptr, 0},
                              {"raw", required_argument, nullptr, 0},
                              {"file", required_argument, nullptr, 0},
                              {"echo", no_argument, nullptr, 0},
                              {"show", no_argument, nullptr, 0},
                              {}};

}  // namespace

const Command send_command = {"send",
                              "Send messages to the service, or list what can be sent",
                              R"(statusctl send [--show] TYPE [FIELD=VALUE...|ITEM...]
       statusctl send --list [TYPE] | [--show] --raw HEX | --file SCENARIO [--echo]
  --list     Show the types, or this one, with fields and words
  --raw      Send a datagram of these bytes, in hexadecimal digits
  --file     Play the lines of a scenario; - is standard input
  --echo     Show each line of the scenario as it is sent
  --show     Show what changes in the second after it, or why probably nothing does

A message is TYPE FIELD=VALUE... for a record and TYPE ITEM... for a text; numbers
that mean something can be given as words:
  statusctl send link_status port=USB-C isConnect=1
  statusctl send ethernet_control 4 on 1
  statusctl send hdcp_version USB-C "HDCP 1.4"
)",
                              options,
                              any_number,
                              true,
                              run_send};

}  // namespace statusctl
