/// What /proc tells about processes, file locks and netlink ports. What can't be read is
/// simply not there: without root's rights, the sockets of other users' processes.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace statusctl {

constexpr const char* service_name = "status_json_service";

/// The processes of this name, of which the kernel keeps 15 bytes.
std::vector<pid_t> processes_named(const std::string& name);

/// "process 12 (name)", the name escaped.
std::string process_text(pid_t pid);

/// Who holds a lock of `flock` on a file, such as "locked for reading by process 12 (name)", in
/// the order of the kernel's table. Who waits for one isn't there.
std::vector<std::string> locks_on(const struct stat& file);

/// Whether a process has CAP_NET_ADMIN, which sending an event from its own port takes. True where
/// that can't be seen.
bool may_send_events(pid_t pid);

/// The inode of the socket that is bound to this port of NETLINK_USERSOCK.
std::optional<ino_t> socket_on_event_port(pid_t port);

/// The process that has a socket open, as far as that can be seen.
std::optional<pid_t> process_with_socket(ino_t socket);

}  // namespace statusctl
