/// A subscriber of the update events.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <sys/types.h>

struct Event {
    std::string bytes;                           // the whole netlink message
    std::string name;                            // its payload up to the first zero byte
    std::chrono::steady_clock::time_point time;  // when it was received
};

/// Subscribed from its construction on; what comes meanwhile waits in the socket, so an event's
/// time is right only for those who wait for it.
class EventListener {
public:
    EventListener();
    ~EventListener();
    EventListener(const EventListener&) = delete;
    EventListener& operator=(const EventListener&) = delete;

    /// The next event; fails the case and gives an empty one where none comes for a minute.
    Event wait();
    /// The names of the events that have come and were not yet taken. Does not wait.
    std::vector<std::string> take_names();

private:
    bool comes_within(std::chrono::milliseconds limit) const;
    Event receive() const;

    int descriptor_;
};
