#include "tools/statusctl/send.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <thread>

#include "core/paths.h"
#include "tools/statusctl/compose_datagram.h"
#include "tools/statusctl/input_error.h"
#include "tools/statusctl/message_types.h"
#include "tools/statusctl/printable.h"
#include "tools/statusctl/scenario.h"

namespace statusctl {

namespace {

/// How long a message is tried again while the service's receive queue is full.
constexpr std::chrono::seconds full_queue_patience(2);
constexpr std::chrono::milliseconds full_queue_pause(5);

/// Sends one datagram; gives 0 or the reason as errno has it. The socket isn't connected, as a
/// connection would end with the service's restart.
int try_send(int socket_descriptor, const std::string& datagram)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, message_socket_path, sizeof address.sun_path - 1);
    const auto deadline = std::chrono::steady_clock::now() + full_queue_patience;
    for (;;) {
        if (sendto(socket_descriptor, datagram.data(), datagram.size(), MSG_DONTWAIT,
                   reinterpret_cast<const sockaddr*>(&address), sizeof address) >= 0) {
            return 0;
        }
        if (errno != EAGAIN || std::chrono::steady_clock::now() >= deadline) {
            return errno;
        }
        std::this_thread::sleep_for(full_queue_pause);
    }
}

bool send_datagram(int socket_descriptor, const std::string& datagram)
{
    const int error = try_send(socket_descriptor, datagram);
    if (error == 0) {
        return true;
    }
    std::cerr << "statusctl: can't send to " << message_socket_path << ": ";
    if (error == ENOENT || error == ECONNREFUSED) {
        std::cerr << "the service is not there\n";
    } else if (error == EAGAIN) {
        std::cerr << "the service's receive queue stays full\n";
    } else {
        std::cerr << std::strerror(error) << '\n';
    }
    return false;
}

bool play_step(int socket_descriptor, const ScenarioStep& step, bool echo)
{
    switch (step.kind) {
        case ScenarioStep::Kind::heading:
            std::cout << styled(Style::heading, "== " + printable(step.text)) << std::endl;
            return true;
        case ScenarioStep::Kind::wait:
            std::this_thread::sleep_for(step.wait);
            return true;
        case ScenarioStep::Kind::message:
            break;
    }
    if (echo) {
        std::cout << styled(Style::faint, clock_text(std::chrono::system_clock::now()))
                  << "  send  " << printable(step.text) << std::endl;
    }
    return send_datagram(socket_descriptor, step.datagram);
}

std::string whole_text(const std::string& path)
{
    std::ifstream file;
    if (path != "-") {
        file.open(path);
    }
    std::istream& stream = path == "-" ? std::cin : file;
    std::string text{std::istreambuf_iterator<char>(stream), {}};
    if (!stream) {
        throw InputError("can't read " + printable(path) + ": " + std::strerror(errno));
    }
    return text;
}

std::vector<ScenarioStep> steps_of(const SendOptions& options)
{
    if (!options.scenario.empty()) {
        return parse_scenario(whole_text(options.scenario));
    }
    return {{ScenarioStep::Kind::message,
             "",
             options.is_raw ? bytes_from_hex(options.raw) : datagram_from_words(options.words),
             {}}};
}

}  // namespace

int run_send(const SendOptions& options)
{
    if (options.list) {
        std::cout << list_of_messages();
        return 0;
    }
    const std::vector<ScenarioStep> steps = steps_of(options);
    const int socket_descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket_descriptor < 0) {
        std::cerr << "statusctl: no socket: " << std::strerror(errno) << '\n';
        return 1;
    }
    bool sent = true;
    for (const ScenarioStep& step : steps) {
        sent = sent && play_step(socket_descriptor, step, options.echo);
    }
    close(socket_descriptor);
    return sent ? 0 : 1;
}

}  // namespace statusctl
