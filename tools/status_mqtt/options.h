/// What status_mqtt is told: on the command line, and by the same names in its file.
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>

constexpr const char* configuration_path = "/etc/status_mqtt.conf";

/// An option that can't be used. Its text is one line that says what is wrong and what would be
/// right.
class OptionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Options {
    std::string host;
    int port = 0;
    std::string device;  // the client's id, and its level in the topics
    std::string prefix;
    std::string ca;  // empty: no TLS
    std::string cert;
    std::string key;
    std::string user;
    std::string password;
    int keepalive_s = 0;
    std::chrono::milliseconds pause{0};         // least time between two messages of a topic
    std::chrono::milliseconds longest_wait{0};  // between two attempts to connect
};

/// Reads the file, if there is one, and the command line, which wins. Prints the usage and ends the
/// process where that asks for it. Throws OptionError.
Options read_options(int argc, char** argv);
