/// The command line of statusctl. A subcommand is a row of `commands` and the function that it
/// names, which tells CLI11 its options and gives what is to be run.
#include <exception>
#include <functional>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "tools/statusctl/check.h"
#include "tools/statusctl/get.h"
#include "tools/statusctl/input_error.h"
#include "tools/statusctl/send.h"
#include "tools/statusctl/watch.h"

namespace {

using namespace statusctl;

constexpr int status_failure = 1;
constexpr int status_misuse = 2;

/// Gives the exit status.
using Action = std::function<int()>;

Action add_send(CLI::App& command)
{
    auto options = std::make_shared<SendOptions>();
    command.description("Send messages to the service, or list what can be sent");
    command.footer(
        "A message is TYPE FIELD=VALUE... for a record and TYPE ITEM... for a text; numbers\n"
        "that mean something can be given as words:\n"
        "  statusctl send link_status port=USB-C isConnect=1\n"
        "  statusctl send ethernet_control 4 on 1\n"
        "  statusctl send hdcp_version USB-C \"HDCP 1.4\"");
    // What follows the type is left as it is, whatever it starts with.
    command.prefix_command();
    auto* list = command.add_flag("--list", options->list, "Show types, fields and words");
    auto* raw = command.add_option("--raw", options->raw,
                                   "Send a datagram of these bytes, in hexadecimal digits");
    auto* file = command.add_option("--file", options->scenario,
                                    "Play the lines of a scenario; - is standard input");
    command.add_flag("--echo", options->echo, "Show each line of the scenario as it is sent")
        ->needs(file);
    list->excludes(raw)->excludes(file);
    raw->excludes(file);
    return [&command, options, raw, file] {
        options->words = command.remaining();
        options->is_raw = raw->count() > 0;
        if (!options->words.empty() && (options->is_raw || options->list || file->count() > 0)) {
            throw InputError("a message in words goes with no option");
        }
        return run_send(*options);
    };
}

Action add_watch(CLI::App& command)
{
    auto options = std::make_shared<WatchOptions>();
    command.description("Show the documents' state, and then what changes");
    command.add_option("DOCUMENT", options->documents,
                       "inputs, usb-host, ethernet, power, outputs; all of them by default");
    command.add_flag("--json", options->json, "Show an object a line, for programs");
    command.add_flag("--changes-only", options->changes_only, "Leave out the state at the start");
    command.add_option("--count", options->count,
                       "End when so many changes of documents were shown");
    command.add_option("--for", options->seconds, "End after so many seconds")
        ->check(CLI::Range(0.001, 1e6));
    return [options] { return run_watch(*options); };
}

Action add_get(CLI::App& command)
{
    auto options = std::make_shared<GetOptions>();
    command.description("Print a document, or one member of it");
    command.add_option("DOCUMENT", options->document,
                       "inputs, usb-host, ethernet, power or outputs; all of them by default");
    command.add_option("PATH", options->path, "A member, such as inputs[0].video.connected");
    command.add_flag("--json", options->json, "Print text as JSON too");
    return [options] { return run_get(*options); };
}

Action add_check(CLI::App& command)
{
    auto options = std::make_shared<CheckOptions>();
    command.description("Look over the documents and the service; a line a finding");
    command.add_flag("--repair", options->repair,
                     "Before a start: remove documents that do not parse, and nothing else");
    return [options] { return run_check(*options); };
}

struct Command {
    const char* name;
    Action (*add)(CLI::App& command);
};

constexpr Command commands[] = {
    {"send", add_send},
    {"watch", add_watch},
    {"get", add_get},
    {"check", add_check},
};

/// Parses the command line; gives what is to be run, or prints help and gives what ends well.
Action action_of(CLI::App& app, int argc, char** argv)
{
    Action action;
    for (const Command& row : commands) {
        CLI::App* command = app.add_subcommand(row.name);
        const Action own_action = row.add(*command);
        command->callback([&action, own_action] { action = own_action; });
    }
    app.require_subcommand(1);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        const int status = app.exit(success);
        return [status] { return status; };
    } catch (const CLI::ParseError& error) {
        throw InputError(error.what());
    }
    return action;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        CLI::App app("Send to status_json_service, and read and watch what it publishes",
                     "statusctl");
        return action_of(app, argc, argv)();
    } catch (const InputError& error) {
        std::cerr << "statusctl: " << error.what() << '\n';
        return status_misuse;
    } catch (const std::exception& error) {
        std::cerr << "statusctl: " << error.what() << '\n';
        return status_failure;
    }
}
