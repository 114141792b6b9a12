#include "tools/statusctl/system_state.h"

#include <linux/netlink.h>
#include <sys/sysmacros.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "tools/statusctl/printable.h"

namespace statusctl {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kept_name_size = 15;

std::string first_line(const std::string& path)
{
    std::string line;
    std::ifstream file(path);
    std::getline(file, line);
    return line;
}

std::string process_name(pid_t pid)
{
    return first_line("/proc/" + std::to_string(pid) + "/comm");
}

std::vector<pid_t> all_processes()
{
    std::vector<pid_t> pids;
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc", ignored)) {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") == std::string::npos) {
            pids.push_back(std::stoi(name));
        }
    }
    return pids;
}

/// Processes end and start while this looks.
bool has_open(pid_t pid, const std::string& target)
{
    std::error_code error;
    fs::directory_iterator descriptor("/proc/" + std::to_string(pid) + "/fd", error);
    for (; !error && descriptor != fs::directory_iterator(); descriptor.increment(error)) {
        std::error_code ignored;
        if (fs::read_symlink(descriptor->path(), ignored) == target) {
            return true;
        }
    }
    return false;
}

/// The file as /proc/locks names it.
std::string lock_table_name(const struct stat& file)
{
    char name[64];
    std::snprintf(name, sizeof name, "%02x:%02x:%ju", major(file.st_dev), minor(file.st_dev),
                  static_cast<std::uintmax_t>(file.st_ino));
    return name;
}

}  // namespace

std::vector<pid_t> processes_named(const std::string& name)
{
    std::vector<pid_t> pids;
    for (const pid_t pid : all_processes()) {
        if (process_name(pid) == name.substr(0, kept_name_size)) {
            pids.push_back(pid);
        }
    }
    return pids;
}

std::string process_text(pid_t pid)
{
    return "process " + std::to_string(pid) + " (" + printable(process_name(pid)) + ")";
}

bool operator==(const FileLock& left, const FileLock& right)
{
    return left.pid == right.pid && left.is_exclusive == right.is_exclusive &&
           left.is_waiting == right.is_waiting;
}

std::vector<FileLock> locks_on(const struct stat& file)
{
    const std::string wanted = lock_table_name(file);
    std::vector<FileLock> locks;
    std::ifstream table("/proc/locks");
    for (std::string line; std::getline(table, line);) {
        // 1: FLOCK  ADVISORY  WRITE 1234 00:1a:5678 0 EOF, with "->" before what waits
        std::istringstream columns(line);
        std::string number, kind, nature, access, name;
        pid_t pid = 0;
        columns >> number >> kind;
        const bool is_waiting = kind == "->";
        if (is_waiting) {
            columns >> kind;
        }
        columns >> nature >> access >> pid >> name;
        if (kind == "FLOCK" && name == wanted) {
            locks.push_back({pid, access == "WRITE", is_waiting});
        }
    }
    return locks;
}

std::optional<ino_t> socket_on_event_port(pid_t port)
{
    std::ifstream table("/proc/net/netlink");
    std::string line;
    std::getline(table, line);  // the headings
    while (std::getline(table, line)) {
        std::istringstream columns(line);
        std::string address, groups, received, sent, dump, locks, drops;
        int protocol = 0;
        std::uint32_t bound = 0;
        ino_t inode = 0;
        columns >> address >> protocol >> bound >> groups >> received >> sent >> dump >> locks >>
            drops >> inode;
        if (columns && protocol == NETLINK_USERSOCK && bound == static_cast<std::uint32_t>(port)) {
            return inode;
        }
    }
    return std::nullopt;
}

std::optional<pid_t> process_with_socket(ino_t socket)
{
    const std::string target = "socket:[" + std::to_string(socket) + "]";
    for (const pid_t pid : all_processes()) {
        if (has_open(pid, target)) {
            return pid;
        }
    }
    return std::nullopt;
}

}  // namespace statusctl
