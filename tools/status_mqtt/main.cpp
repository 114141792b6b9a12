/// status_mqtt: publishes the status documents to an MQTT broker, and nothing else.
///
/// One thread: a connection after the other, and in each of them the documents, as the client
/// library follows them. SIGTERM has its default effect: the process may end anywhere, and
/// the broker says that the device is offline.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <iostream>
#include <memory>
#include <random>
#include <system_error>
#include <thread>

#include "client/client.h"
#include "tools/status_mqtt/connection.h"
#include "tools/status_mqtt/log.h"
#include "tools/status_mqtt/options.h"
#include "tools/status_mqtt/publisher.h"

void log_line(const std::string& line)
{
    std::cerr << "status_mqtt: " + line + "\n";
}

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int status_misuse = 2;

// --- one connection ---

/// Until `moment`, but not longer than the connection can do without its work.
int poll_timeout(const Options& options, Clock::time_point moment)
{
    const milliseconds longest = std::chrono::seconds(options.keepalive_s) / 5;
    const auto now = Clock::now();
    if (moment > now + longest) {
        return static_cast<int>(longest.count());
    }
    const auto left = std::chrono::ceil<milliseconds>(moment - now);
    return static_cast<int>(std::max<milliseconds::rep>(left.count(), 0));
}

struct End {
    std::string reason;
    Clock::duration accepted_for{0};  // by the broker; 0 where it never was
};

/// Publishes until the connection ends.
End run_connection(const Options& options)
{
    Connection connection(options);
    // Before the first document is read, so that no change falls between.
    const std::unique_ptr<status_json_watch, decltype(&status_json_watch_close)> watch(
        status_json_watch_open(), &status_json_watch_close);
    if (!watch) {
        throw std::system_error(errno, std::generic_category(), "can't follow the documents");
    }
    Publisher publisher(options, connection);
    Clock::time_point accepted;
    bool was_accepted = false;
    while (!connection.has_ended()) {
        pollfd entries[] = {connection.poll_entry(),
                            {status_json_watch_fd(watch.get()), POLLIN, 0}};
        const auto due = was_accepted ? publisher.due() : Clock::time_point::max();
        if (poll(entries, was_accepted ? 2 : 1, poll_timeout(options, due)) < 0) {
            continue;  // a signal
        }
        connection.work(entries[0].revents);
        if (!connection.is_accepted()) {
            continue;
        }
        if (!was_accepted) {
            was_accepted = true;
            accepted = Clock::now();
            log_line("connected as " + options.device);
        }
        publisher.work(status_json_watch_take(watch.get()));
    }
    return {connection.end(), was_accepted ? Clock::now() - accepted : Clock::duration(0)};
}

// --- and the next ---

/// How long to wait before the next attempt: anything up to a limit that doubles with each, so that
/// a fleet that has lost its broker comes back spread over time.
class Waits {
public:
    explicit Waits(milliseconds longest) : longest_(longest) {}

    milliseconds next()
    {
        limit_ = std::min(2 * limit_, longest_);
        return milliseconds(
            std::uniform_int_distribution<milliseconds::rep>(0, limit_.count())(random_));
    }
    void start_over() { limit_ = first_ / 2; }

private:
    static constexpr milliseconds first_{1000};
    const milliseconds longest_;
    milliseconds limit_ = first_ / 2;
    std::random_device random_;
};

/// Some brokers close a connection without a word when another client comes with its name.
std::string hint(const Options& options, int short_connections)
{
    return short_connections < 2
               ? ""
               : "; once more within a minute: does another device have the name " +
                     options.device + "?";
}

[[noreturn]] void run(const Options& options)
{
    constexpr std::chrono::seconds lasting(60);
    Waits waits(options.longest_wait);
    int short_connections = 0;  // one after the other
    std::string told;           // an attempt that fails as the one before is not told again
    for (;;) {
        const End end = run_connection(options);
        if (end.accepted_for >= lasting) {
            waits.start_over();
            short_connections = 0;
        } else if (end.accepted_for > Clock::duration(0)) {
            ++short_connections;
        }
        if (end.accepted_for > Clock::duration(0) || end.reason != told) {
            log_line(options.host + ":" + std::to_string(options.port) + ": " + end.reason +
                     hint(options, short_connections));
            told = end.reason;
        }
        std::this_thread::sleep_for(waits.next());
    }
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        const Options options = read_options(argc, argv);
        mosquitto_lib_init();
        run(options);
    } catch (const OptionError& error) {
        log_line(error.what());
        return status_misuse;
    } catch (const std::exception& error) {
        log_line(error.what());
        return 1;
    }
}
