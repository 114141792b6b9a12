/// The events that announce a changed document: one netlink broadcast each.
#include <linux/netlink.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include "store/documents.h"
#include "store/store.h"

namespace {

constexpr std::uint32_t event_payload_size = 1024;
constexpr std::uint32_t event_message_size = NLMSG_HDRLEN + event_payload_size;

// The own netlink port is the process id, and only one socket can be bound to it: the lock keeps
// the timer's thread and the dispatch thread from taking the port from one another.
std::mutex send_mutex;

std::mutex update_timer_mutex;
timer_t update_timer_id = nullptr;  // null until the first write; under `update_timer_mutex`

void input_update_timer_expired(sigval /*value*/)
{
    send_update_event(-1, inputs_document.event);
}

bool bind_own_address(int descriptor)
{
    sockaddr_nl own = {};
    sched_yield();
    own.nl_family = AF_NETLINK;
    own.nl_pid = static_cast<std::uint32_t>(getpid());
    own.nl_groups = static_cast<std::uint32_t>(-1);
    return bind(descriptor, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0;
}

/// What becomes of the message is not looked at: as no socket owns the destination port -1, the
/// kernel refuses that copy after the broadcast has gone out.
void broadcast(int descriptor, nlmsghdr* message, sockaddr_nl* destination)
{
    iovec part = {message, event_message_size};
    msghdr envelope = {};
    envelope.msg_name = destination;
    envelope.msg_namelen = sizeof *destination;
    envelope.msg_iov = &part;
    envelope.msg_iovlen = 1;
    sched_yield();
    static_cast<void>(sendmsg(descriptor, &envelope, 0));
    sched_yield();
}

}  // namespace

void send_update_event(std::int32_t destination, const char* name)
{
    const std::lock_guard<std::mutex> lock(send_mutex);
    const int descriptor = socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK);
    if (descriptor == -1) {
        std::fputs("socket()) failed\n", stderr);
        return;
    }
    if (!bind_own_address(descriptor)) {
        std::fputs("bind failed\n", stderr);
        close(descriptor);
        return;
    }

    sockaddr_nl address = {};
    sched_yield();
    address.nl_family = AF_NETLINK;
    address.nl_pid = static_cast<std::uint32_t>(destination);
    address.nl_groups = update_event_group;

    auto* message = static_cast<nlmsghdr*>(std::malloc(event_message_size));
    if (message == nullptr) {
        std::fputs("failed to allocate nlh\n", stderr);
        close(descriptor);
        return;
    }
    // All of it, so that nothing of the heap goes out to every process on the device.
    std::memset(message, 0, event_message_size);
    sched_yield();
    message->nlmsg_len = event_message_size;
    message->nlmsg_pid = static_cast<std::uint32_t>(getpid());
    std::memcpy(NLMSG_DATA(message), name, std::strlen(name) + 1);

    broadcast(descriptor, message, &address);
    close(descriptor);
    std::free(message);
}

void arm_input_update_timer()
{
    const std::lock_guard<std::mutex> lock(update_timer_mutex);
    if (update_timer_id == nullptr) {
        sigevent expiry = {};
        expiry.sigev_notify = SIGEV_THREAD;
        expiry.sigev_notify_function = input_update_timer_expired;
        if (timer_create(CLOCK_REALTIME, &expiry, &update_timer_id) != 0) {
            return;
        }
    }
    itimerspec delay = {};
    delay.it_value.tv_sec = inputs_document.event_delay_s;
    static_cast<void>(timer_settime(update_timer_id, 0, &delay, nullptr));
}
