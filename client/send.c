#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "client/client.h"
#include "client/documents.h"
#include "core/messages.h"

/* A receive buffer of the service holds 1,024 bytes with the zero byte that it adds. */
enum { LONGEST_PAYLOAD = 1023 - sizeof(MessageHeader) };

/*
 * The socket is not connected: the service makes its own anew at each start, and a connected
 * sender would go on sending to the old one. The kernel ends the wait as soon as there is room.
 */
static int send_within(int descriptor, const void* datagram, size_t size, int patience_ms)
{
    static const struct sockaddr_un service = {AF_UNIX, "/tmp/json_app.sock"};
    const long long deadline = status_json_now_ms() + patience_ms;

    for (int left_ms = patience_ms;;) {
        const struct timeval limit = {left_ms / 1000, left_ms % 1000 * 1000L};
        if (left_ms > 0 &&
            setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == -1) {
            return -1;
        }
        if (sendto(descriptor, datagram, size, left_ms > 0 ? 0 : MSG_DONTWAIT,
                   (const struct sockaddr*)&service, sizeof service) >= 0) {
            return 0;
        }
        if (errno != EINTR) {
            return -1;
        }
        const long long now = status_json_now_ms();
        left_ms = now < deadline ? (int)(deadline - now) : 0;
    }
}

int status_json_send_datagram(const void* datagram, size_t size, int patience_ms)
{
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor == -1) {
        return -1;
    }
    const int result = send_within(descriptor, datagram, size, patience_ms);
    const int error = errno;
    close(descriptor);
    errno = error;
    return result;
}

int status_json_send(uint32_t type, const void* payload, size_t size, int patience_ms)
{
    struct __attribute__((packed)) {
        MessageHeader header;
        unsigned char payload[LONGEST_PAYLOAD];
    } message = {.header = {type, (uint32_t)size}};

    if (size > sizeof message.payload) {
        errno = EMSGSIZE;
        return -1;
    }
    if (size > 0) {
        memcpy(message.payload, payload, size);
    }
    return status_json_send_datagram(&message, sizeof message.header + size, patience_ms);
}

int status_json_send_text(uint32_t type, const char* text, int patience_ms)
{
    return status_json_send(type, text, strlen(text), patience_ms);
}
