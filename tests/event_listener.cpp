#include "tests/event_listener.h"

#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

#include <gtest/gtest.h>

EventListener::EventListener() : descriptor_(socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK))
{
    const int room = 8 << 20;  // for a case that looks at its events late
    setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = 1;
    EXPECT_EQ(bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0)
        << "subscribing needs the rights of root";
}

EventListener::~EventListener()
{
    close(descriptor_);
}

Event EventListener::wait()
{
    if (!comes_within(std::chrono::minutes(1))) {
        ADD_FAILURE() << "no event for a minute";
        return {};
    }
    return receive();
}

std::vector<std::string> EventListener::take_names()
{
    std::vector<std::string> names;
    while (comes_within(std::chrono::milliseconds(0))) {
        names.push_back(receive().name);
    }
    return names;
}

bool EventListener::comes_within(std::chrono::milliseconds limit) const
{
    pollfd readable = {descriptor_, POLLIN, 0};
    return poll(&readable, 1, static_cast<int>(limit.count())) == 1;
}

Event EventListener::receive() const
{
    char buffer[4096];  // more than any event has
    const ssize_t size = recv(descriptor_, buffer, sizeof buffer, 0);
    EXPECT_GT(size, NLMSG_HDRLEN);
    Event event;
    event.time = std::chrono::steady_clock::now();
    event.bytes.assign(buffer, static_cast<std::size_t>(size > 0 ? size : 0));
    event.name = event.bytes.substr(std::min<std::size_t>(NLMSG_HDRLEN, event.bytes.size()));
    event.name.resize(std::min(event.name.find('\0'), event.name.size()));
    return event;
}
