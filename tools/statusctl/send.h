/// `statusctl send`: messages to the service.
#pragma once

#include <string>
#include <vector>

namespace statusctl {

struct SendOptions {
    std::vector<std::string> words;  // a message in words
    std::string raw;                 // the bytes of one, in hexadecimal digits
    std::string scenario;            // the path of a scenario, - for standard input
    bool is_raw = false;
    bool list = false;
    bool echo = false;  // each line of the scenario is shown, with its time, as it is sent
};

/// Sends what the options say, or lists what can be sent. Nothing is sent unless all of it is
/// right. Gives the exit status: 0, or 1 where the service can't be reached, with a line on
/// standard error. Throws InputError.
int run_send(const SendOptions& options);

}  // namespace statusctl
