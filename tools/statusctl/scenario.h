/// Scenarios: texts that play a device's day, a line a step. A scenario can send, wait and
/// speak; it runs nothing. Pure functions.
///
///     # a comment, and empty lines, are left out
///     say A source is plugged in
///     link_status port=HDMI isConnect=1
///     power_status "1"
///     raw 06000000 00000000
///     wait 500ms
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace statusctl {

struct ScenarioStep {
    enum class Kind { message, wait, heading };
    Kind kind;
    std::string text;      // the line; of a heading what it says
    std::string datagram;  // of a message
    std::chrono::milliseconds wait{0};
};

/// All steps of the scenario. Throws InputError, which names the line, where one is wrong.
std::vector<ScenarioStep> parse_scenario(std::string_view text);

}  // namespace statusctl
