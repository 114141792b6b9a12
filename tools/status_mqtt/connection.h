/// One connection to the broker, from its first byte to its end.
#pragma once

#include <poll.h>

#include <memory>
#include <string>
#include <vector>

#include <mosquitto.h>

#include "tools/status_mqtt/options.h"

/// PREFIX/DEVICE/NAME.
std::string topic_of(const Options& options, const std::string& name);

/// Never used again once it has ended: nothing of it can wait in a library's queue. However it
/// ends, and with it the process, it says no farewell, so that the broker publishes the will,
/// `offline` as the device's availability. For one thread.
class Connection {
public:
    /// Waits for the name's resolution and for TCP, as long as the system does. `options` must
    /// live longer.
    explicit Connection(const Options& options);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// The broker has accepted it and takes messages.
    [[nodiscard]] bool is_accepted() const { return accepted_; }
    [[nodiscard]] bool has_ended() const { return !end_.empty(); }
    /// Why, in a line.
    [[nodiscard]] const std::string& end() const { return end_; }

    /// What to poll for, also where nothing is to be sent. `work` belongs behind each poll, and no
    /// later than a fifth of the keepalive after the last.
    [[nodiscard]] pollfd poll_entry() const;
    void work(short returned_events);

    /// Sends a message of QoS 1 that the broker retains; gives its number. 0 where it can't be
    /// sent, and why in `problem`.
    int publish(const std::string& topic, const std::string& payload, std::string& problem);

    struct Answer {
        int message;
        std::string problem;  // why the broker refused the message; empty where it took it
    };
    /// What the broker has answered since the last call.
    std::vector<Answer> take_answers();

private:
    static void on_log(mosquitto* client, void* self, int level, const char* text);
    static void on_connect(mosquitto* client, void* self, int reason, int flags,
                           const mosquitto_property* properties);
    static void on_disconnect(mosquitto* client, void* self, int reason,
                              const mosquitto_property* properties);
    static void on_publish(mosquitto* client, void* self, int message, int reason,
                           const mosquitto_property* properties);
    int connect();
    void check(int error);
    std::string text_of(int error) const;

    const Options& options_;
    std::unique_ptr<mosquitto, decltype(&mosquitto_destroy)> client_;
    bool accepted_ = false;
    std::string end_;
    std::string complaint_;  // the TLS library's
    std::vector<Answer> answers_;
};
