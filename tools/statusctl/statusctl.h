/// The commands of statusctl, and what they are given.
#pragma once

#include <getopt.h>

#include <charconv>
#include <cstddef>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace statusctl {

/// What a person or a program gave to the tool and the tool can't use. Its text is one line that
/// says what is wrong; `main` prints it and ends with status 2.
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What follows the name of a command on the command line.
struct Arguments {
    std::map<std::string, std::string>
        options;  // by name, without dashes; values where they have one
    std::vector<std::string> words;

    [[nodiscard]] bool has(const char* option) const { return options.count(option) > 0; }
    /// The option's value; empty where it isn't given.
    [[nodiscard]] std::string value(const char* option) const
    {
        return has(option) ? options.at(option) : "";
    }
};

constexpr std::size_t any_number = static_cast<std::size_t>(-1);

/// Stands first in the options of each command.
constexpr option help_option = {"help", no_argument, nullptr, 0};

/// The number that the whole of `text` is; none where it is no such number.
template <typename Number>
std::optional<Number> number_in(std::string_view text, int base = 10)
{
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    return error == std::errc() && stop == end ? std::optional<Number>(number) : std::nullopt;
}

struct Command {
    const char* name;
    const char* summary;
    const char* usage;       // what --help prints below the summary
    const option* options;   // with an empty row at the end
    std::size_t most_words;  // that it takes beside its options
    bool ends_options;       // the first word, or an unknown option, ends its options
    /// Gives the exit status: 0, or 1 where something could not be done, with a line on standard
    /// error. Throws InputError before it has done anything, and std::exception.
    int (*run)(const Arguments& arguments);
};

extern const Command send_command;
extern const Command watch_command;
extern const Command get_command;
extern const Command check_command;

}  // namespace statusctl
