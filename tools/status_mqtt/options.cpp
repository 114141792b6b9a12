#include "tools/status_mqtt/options.h"

#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>

#include <mosquitto.h>

namespace {

using Values = std::map<std::string, std::string>;  // by the options' names

constexpr option rows[] = {
    {"host", required_argument, nullptr, 0},
    {"port", required_argument, nullptr, 0},
    {"device", required_argument, nullptr, 0},
    {"prefix", required_argument, nullptr, 0},
    {"ca", required_argument, nullptr, 0},
    {"cert", required_argument, nullptr, 0},
    {"key", required_argument, nullptr, 0},
    {"user", required_argument, nullptr, 0},
    {"password-file", required_argument, nullptr, 0},
    {"keepalive", required_argument, nullptr, 0},
    {"pause", required_argument, nullptr, 0},
    {"longest-wait", required_argument, nullptr, 0},
    {"help", no_argument, nullptr, 'h'},
    {},
};

constexpr const char* usage = R"(Publish the status documents to an MQTT broker
Usage: status_mqtt --host HOST [OPTION...]
  --host HOST             The broker's name or address, or the path of its Unix socket
  --port PORT             Its port; 1883, or 8883 with --ca
  --device NAME           The device's name, also the client id; the host name
  --prefix PREFIX         What the topics begin with; status
  --ca FILE               Use TLS, and trust the authorities of this file
  --cert FILE             The device's certificate
  --key FILE              Its private key
  --user NAME             The user name for the broker
  --password-file FILE    Whose first line is that user's password
  --keepalive SECONDS     After which an idle connection is tried; 60
  --pause SECONDS         Least time between two messages of a document; 1
  --longest-wait SECONDS  Most time between two attempts to connect; 60
)"
                              "The same names, without dashes and with a value behind each, may "
                              "stand in\n/etc/status_mqtt.conf, a line each.\n";

[[noreturn]] void refuse(const std::string& what)
{
    throw OptionError(what);
}

// --- the file and the command line ---

bool is_option(const std::string& name)
{
    return std::any_of(std::begin(rows), std::end(rows) - 1, [&name](const option& row) {
        return row.has_arg == required_argument && name == row.name;
    });
}

std::string trimmed(const std::string& text)
{
    const std::size_t begin = text.find_first_not_of(" \t\r");
    return begin == std::string::npos
               ? ""
               : text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin);
}

/// Adds a line of a name and a value; gives what is wrong with it, or an empty text.
std::string add_line(Values& values, const std::string& line)
{
    const std::string name = line.substr(0, line.find_first_of(" \t"));
    const std::string value = trimmed(line.substr(name.size()));
    if (!is_option(name)) {
        return "there is no option " + name + "; status_mqtt --help shows all";
    }
    if (value.empty()) {
        return name + " needs a value behind it";
    }
    return values.emplace(name, value).second ? "" : name + " is there twice";
}

/// Empty lines, and those that begin with #, count for nothing.
Values read_file()
{
    Values values;
    errno = 0;
    std::ifstream file(configuration_path);
    if (!file && errno != ENOENT) {
        refuse(std::string(configuration_path) + ": " + std::strerror(errno));
    }
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        line = trimmed(line);
        const bool counts = !line.empty() && line[0] != '#';
        const std::string problem = counts ? add_line(values, line) : "";
        if (!problem.empty()) {
            refuse(std::string(configuration_path) + ":" + std::to_string(number) + ": " + problem);
        }
    }
    return values;
}

Values read_command_line(int argc, char** argv)
{
    Values values;
    opterr = 0;
    for (;;) {
        const std::string given = optind < argc ? argv[optind] : "";
        int row = 0;
        const int found = getopt_long(argc, argv, "+:h", rows, &row);
        if (found == -1) {
            break;
        }
        if (found == 'h') {
            std::cout << usage;
            std::exit(0);
        }
        // In full: what is an abbreviation today may stand for another option tomorrow.
        const bool is_known = found != '?' && is_option(given.substr(2, given.find('=') - 2));
        if (!is_known) {
            refuse("there is no option " + given + "; --help shows all");
        }
        if (found == ':' || *optarg == '\0') {
            refuse(given + " needs a value");
        }
        if (!values.emplace(rows[row].name, optarg).second) {
            refuse(std::string("--") + rows[row].name + " is given twice");
        }
    }
    if (optind < argc) {
        refuse(std::string(argv[optind]) + " is no option; --help shows all");
    }
    return values;
}

// --- the values ---

std::string value_of(const Values& values, const char* name, const std::string& fallback = "")
{
    const auto found = values.find(name);
    return found == values.end() ? fallback : found->second;
}

template <typename Number>
Number number_of(const Values& values, const char* name, Number least, Number most,
                 const char* fallback)
{
    const std::string text = value_of(values, name, fallback);
    Number number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool is_in_range = number >= least && number <= most;  // which NaN isn't
    if (error != std::errc() || *stop != '\0' || !is_in_range) {
        std::ostringstream what;
        what << name << " is a number from " << least << " to " << most << ", not " << text;
        refuse(what.str());
    }
    return number;
}

std::chrono::milliseconds time_of(const Values& values, const char* name, double least,
                                  const char* fallback)
{
    constexpr double most_seconds = 86400;
    const double seconds = number_of(values, name, least, most_seconds, fallback);
    return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
}

/// What may stand in a topic, as one level of it or as several.
std::string topic_part_of(const Values& values, const char* name, const std::string& fallback,
                          const char* forbidden)
{
    std::string text = value_of(values, name, fallback);
    if (text.find_first_of(forbidden) != std::string::npos) {
        refuse(std::string(name) + " stands in topics, so it has none of " + forbidden + ": " +
               text);
    }
    if (mosquitto_validate_utf8(text.data(), static_cast<int>(text.size())) != MOSQ_ERR_SUCCESS ||
        text.size() > UINT8_MAX) {
        refuse(std::string(name) + " is text in UTF-8, without control characters and of at most " +
               std::to_string(UINT8_MAX) + " bytes");
    }
    return text;
}

std::string host_name()
{
    char name[HOST_NAME_MAX + 1] = {};
    gethostname(name, sizeof name - 1);
    return name;
}

/// The first line of a file, which must be readable; empty where no file is named.
std::string line_of_file(const Values& values, const char* name)
{
    const std::string path = value_of(values, name);
    if (path.empty()) {
        return "";
    }
    errno = 0;
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    if (file.bad() || !file.is_open()) {
        refuse(std::string(name) + ": can't read " + path + ": " + std::strerror(errno));
    }
    return line;
}

void require_together(const Values& values, const char* name, const char* other)
{
    if (values.count(name) > 0 && values.count(other) == 0) {
        refuse(std::string(name) + " needs " + other + " with it");
    }
}

}  // namespace

Options read_options(int argc, char** argv)
{
    Values values = read_command_line(argc, argv);
    values.merge(read_file());

    if (values.count("host") == 0) {
        refuse(std::string("no broker is named; give --host, or host in ") + configuration_path);
    }
    require_together(values, "cert", "key");
    require_together(values, "key", "cert");
    require_together(values, "cert", "ca");
    require_together(values, "password-file", "user");
    for (const char* name : {"ca", "cert", "key"}) {
        line_of_file(values, name);
    }

    Options options;
    options.host = value_of(values, "host");
    options.ca = value_of(values, "ca");
    options.cert = value_of(values, "cert");
    options.key = value_of(values, "key");
    options.user = value_of(values, "user");
    options.password = line_of_file(values, "password-file");
    if (options.host.rfind('/', 0) == 0) {  // the path of the broker's Unix socket, without a port
        options.port = number_of(values, "port", 0, 0, "0");
    } else {
        options.port = number_of(values, "port", 1, 65535, options.ca.empty() ? "1883" : "8883");
    }
    options.device = topic_part_of(values, "device", host_name(), "/+#");
    options.prefix = topic_part_of(values, "prefix", "status", "+#");
    options.keepalive_s = number_of(values, "keepalive", 5, 65535, "60");
    options.pause = time_of(values, "pause", 0, "1");
    options.longest_wait = time_of(values, "longest-wait", 0.01, "60");
    return options;
}
