/// The command line of statusctl: finds the command and reads its options.
#include <algorithm>
#include <exception>
#include <iostream>

#include "tools/statusctl/documents.h"
#include "tools/statusctl/printable.h"
#include "tools/statusctl/statusctl.h"

namespace {

using namespace statusctl;

constexpr int status_failure = 1;
constexpr int status_misuse = 2;

constexpr const Command* commands[] = {&send_command, &watch_command, &get_command, &check_command};

[[noreturn]] void refuse(const std::string& argument)
{
    throw InputError("The following argument was not expected: " + printable(argument));
}

int show_commands(int status)
{
    std::cout << "Send to status_json_service, and read, watch and check what it publishes\n"
                 "Usage: statusctl COMMAND [OPTION...] [WORD...]\n\n";
    for (const Command* command : commands) {
        std::cout << "  " << padded(command->name, 8) << command->summary << '\n';
    }
    std::cout << "\nThe documents are" << document_names() << ".\n"
              << "statusctl COMMAND --help shows what a command takes, --version the version.\n";
    return status;
}

int show_usage(const Command& command)
{
    std::cout << command.summary << "\nUsage: " << command.usage;
    return 0;
}

void add_option(Arguments& arguments, const option& row, const std::string& given)
{
    const std::string value = optarg == nullptr ? "" : optarg;
    if (given.back() == '=') {
        throw InputError(std::string("--") + row.name + " needs a value");
    }
    if (!arguments.options.emplace(row.name, value).second && row.has_arg == required_argument) {
        throw InputError(std::string("--") + row.name + " is given twice");
    }
}

/// Whether `given` is the option in full: what is an abbreviation today may stand for another
/// option tomorrow.
bool is_in_full(const std::string& given, const option& row)
{
    return given.substr(0, given.find('=')) == std::string("--") + row.name;
}

/// `argv` begins with the command's name.
Arguments read_arguments(const Command& command, int argc, char** argv)
{
    Arguments arguments;
    opterr = 0;
    for (;;) {
        const int place = optind;
        int row = 0;
        int found =
            getopt_long(argc, argv, command.ends_options ? "+:h" : "-:h", command.options, &row);
        if (found == 0 && !is_in_full(argv[place], command.options[row])) {
            found = '?';
        }
        if (found == -1 || (found == '?' && command.ends_options)) {
            const int rest = found == -1 ? optind : place;
            arguments.words.insert(arguments.words.end(), argv + rest, argv + argc);
            return arguments;
        }
        switch (found) {
            case 0:
                add_option(arguments, command.options[row], argv[place]);
                break;
            case 1:
                arguments.words.emplace_back(optarg);
                break;
            case 'h':
                arguments.options[help_option.name];
                break;
            case ':':
                throw InputError(printable(argv[place]) + " needs a value");
            default:
                refuse(argv[place]);
        }
    }
}

int run(int argc, char** argv)
{
    const std::string name = argc > 1 ? argv[1] : "";
    if (name.empty() || name == "--help" || name == "-h") {
        return show_commands(name.empty() ? status_misuse : 0);
    }
    if (name == "--version") {
        std::cout << "statusctl of status_json_service " PROJECT_VERSION "\n";
        return 0;
    }
    const auto* const command =
        std::find_if(std::begin(commands), std::end(commands),
                     [&name](const Command* candidate) { return candidate->name == name; });
    if (command == std::end(commands)) {
        std::string names;
        for (const Command* known : commands) {
            names += std::string(" ") + known->name;
        }
        throw InputError("there is no command " + printable(name) + "; there are" + names);
    }
    const Arguments arguments = read_arguments(**command, argc - 1, argv + 1);
    if (arguments.has(help_option.name)) {
        return show_usage(**command);
    }
    if (arguments.words.size() > (*command)->most_words) {
        refuse(arguments.words[(*command)->most_words]);
    }
    return (*command)->run(arguments);
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const InputError& error) {
        std::cerr << "statusctl: " << error.what() << '\n';
        return status_misuse;
    } catch (const std::exception& error) {
        std::cerr << "statusctl: " << error.what() << '\n';
        return status_failure;
    }
}
