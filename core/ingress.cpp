/// The ingress thread: receives datagrams and does nothing else, so that senders are never
/// held up by the slow work on the documents.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "core/paths.h"

namespace {

/// The bound message socket; ends the process where there can be none.
int open_message_socket()
{
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (descriptor < 0) {
        std::perror("socket");
        std::exit(1);
    }

    // An earlier run has left its socket file behind.
    static_cast<void>(unlink(message_socket_path));

    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, message_socket_path, sizeof address.sun_path - 1);
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
        std::perror("bind");
        close(descriptor);
        std::exit(1);
    }
    return descriptor;
}

}  // namespace

void* run_ingress(void* /*unused*/)
{
    const int descriptor = open_message_socket();
    unsigned char buffer[message_slot_size];
    for (;;) {
        const ssize_t received = recvfrom(descriptor, buffer, sizeof buffer, 0, nullptr, nullptr);
        if (received > 0) {
            message_queue_push(buffer, static_cast<std::size_t>(received));
        }
    }
}
