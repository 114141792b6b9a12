#include "tools/statusctl/scenario.h"

#include <charconv>

#include "tools/statusctl/compose_datagram.h"
#include "tools/statusctl/input_error.h"
#include "tools/statusctl/printable.h"

namespace statusctl {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds longest_wait = std::chrono::hours(1);

constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

milliseconds wait_from_text(std::string_view text)
{
    std::uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    const std::string_view unit(stop, static_cast<std::size_t>(end - stop));
    const milliseconds wait =
        unit == "s" ? milliseconds(std::chrono::seconds(number)) : milliseconds(number);
    if (error != std::errc() || (unit != "s" && unit != "ms") || wait > longest_wait) {
        throw InputError(printable(text) + " is no time such as 500ms or 2s, up to an hour");
    }
    return wait;
}

ScenarioStep step_from_line(std::string_view line)
{
    const std::size_t end = std::min(line.find_first_of(blanks), line.size());
    const std::string_view verb = line.substr(0, end);
    const std::string_view rest = trimmed(line.substr(end));
    if (verb == "say") {
        return {ScenarioStep::Kind::heading, std::string(rest), "", {}};
    }
    if (verb == "wait") {
        return {ScenarioStep::Kind::wait, std::string(line), "", wait_from_text(rest)};
    }
    return {ScenarioStep::Kind::message,
            std::string(line),
            verb == "raw" ? bytes_from_hex(rest) : datagram_from_words(split_words(line)),
            {}};
}

}  // namespace

std::vector<ScenarioStep> parse_scenario(std::string_view text)
{
    std::vector<ScenarioStep> steps;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.empty() || line.front() == '#') {
            continue;
        }
        try {
            steps.push_back(step_from_line(line));
        } catch (const InputError& error) {
            throw InputError("line " + std::to_string(number) + ": " + error.what());
        }
    }
    return steps;
}

}  // namespace statusctl
