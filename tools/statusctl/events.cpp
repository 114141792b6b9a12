#include "tools/statusctl/events.h"

#include <linux/netlink.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "core/paths.h"

namespace statusctl {

namespace {

/// Larger than any event; the rest of a longer message is cut off.
constexpr std::size_t message_buffer_size = 2048;

int open_event_socket()
{
    const int descriptor =
        socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_USERSOCK);
    if (descriptor < 0) {
        return -1;
    }
    const int on = 1;
    sockaddr_nl own = {};
    own.nl_family = AF_NETLINK;
    own.nl_groups = update_event_group;
    if (setsockopt(descriptor, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0 ||
        bind(descriptor, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
        const int error = errno;
        close(descriptor);
        errno = error;
        return -1;
    }
    return descriptor;
}

int open_directory_watch()
{
    const int descriptor = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (descriptor < 0 ||
        inotify_add_watch(descriptor, status_directory,
                          IN_CLOSE_WRITE | IN_CREATE | IN_MOVED_TO | IN_DELETE) < 0) {
        const int error = errno;
        throw std::system_error(error, std::generic_category(),
                                std::string("can't watch ") + status_directory);
    }
    return descriptor;
}

/// Whether root or the owner of the status directory has sent a message. Anyone on the device can
/// send to the group.
bool is_trusted(const msghdr& envelope)
{
    const cmsghdr* part = CMSG_FIRSTHDR(&envelope);  // the credentials, or nothing
    if (part == nullptr) {
        return false;
    }
    ucred sender = {};
    std::memcpy(&sender, CMSG_DATA(part), sizeof sender);
    struct stat directory = {};
    return sender.uid == 0 ||
           (stat(status_directory, &directory) == 0 && directory.st_uid == sender.uid);
}

/// The documents that a netlink message announces: its payload is the event's name and a zero byte.
DocumentSet documents_of_event(std::string_view message)
{
    DocumentSet documents;
    message.remove_prefix(std::min<std::size_t>(NLMSG_HDRLEN, message.size()));
    const std::string_view event = message.substr(0, message.find('\0'));
    for (std::size_t i = 0; i < std::size(status_documents); ++i) {
        const char* own = status_documents[i].event;
        documents[i] = own != nullptr && event == own;
    }
    return documents;
}

DocumentSet take_events(int descriptor)
{
    DocumentSet documents;
    for (;;) {
        std::array<char, message_buffer_size> message;
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> control;
        iovec part = {message.data(), message.size()};
        msghdr envelope = {};
        envelope.msg_iov = &part;
        envelope.msg_iovlen = 1;
        envelope.msg_control = control.data();
        envelope.msg_controllen = control.size();
        const ssize_t size = recvmsg(descriptor, &envelope, 0);
        if (size < 0 && errno != ENOBUFS) {
            return documents;
        }
        if (size < 0) {
            documents.set();  // events were lost: anything may have changed
        } else if (is_trusted(envelope)) {
            documents |= documents_of_event({message.data(), static_cast<std::size_t>(size)});
        }
    }
}

DocumentSet documents_of_change(const inotify_event& change, const char* name, bool have_events)
{
    DocumentSet documents;
    if ((change.mask & IN_Q_OVERFLOW) != 0) {
        return documents.set();
    }
    for (std::size_t i = 0; i < std::size(status_documents); ++i) {
        // A rewrite is announced by its event. A file that comes new, as when the service
        // starts again, or that goes, is announced by nothing.
        const bool announced = have_events && status_documents[i].event != nullptr;
        const bool counts = !announced || (change.mask & IN_CLOSE_WRITE) == 0;
        documents[i] = counts && name == std::string(status_documents[i].name) + ".json";
    }
    return documents;
}

DocumentSet take_changes(int descriptor, bool have_events)
{
    DocumentSet documents;
    for (;;) {
        alignas(inotify_event) std::array<char, 4096> buffer;
        const ssize_t size = read(descriptor, buffer.data(), buffer.size());
        if (size <= 0) {
            return documents;
        }
        for (const char* place = buffer.data(); place < buffer.data() + size;) {
            inotify_event change;
            std::memcpy(&change, place, sizeof change);
            if ((change.mask & IN_IGNORED) != 0) {
                throw std::runtime_error(std::string(status_directory) + " is gone");
            }
            const char* const name = change.len == 0 ? "" : place + sizeof change;
            documents |= documents_of_change(change, name, have_events);
            place += sizeof change + change.len;
        }
    }
}

}  // namespace

Subscription subscribe()
{
    Subscription subscription;
    subscription.events = open_event_socket();
    if (subscription.events < 0) {
        const int error = errno;
        std::cerr << "statusctl: without events (" << std::strerror(error)
                  << (error == EPERM ? ", they need CAP_NET_ADMIN" : "")
                  << "); watching the files instead\n";
    }
    subscription.changes = open_directory_watch();
    return subscription;
}

DocumentSet take_hints(const Subscription& subscription)
{
    const bool have_events = subscription.events >= 0;
    DocumentSet documents = take_changes(subscription.changes, have_events);
    if (have_events) {
        documents |= take_events(subscription.events);
    }
    return documents;
}

}  // namespace statusctl
