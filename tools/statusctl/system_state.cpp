#include "tools/statusctl/system_state.h"

#include <linux/capability.h>
#include <linux/netlink.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>
#include <tuple>

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

std::vector<std::string> words_of(const std::string& line)
{
    std::istringstream words(line);
    return {std::istream_iterator<std::string>(words), {}};
}

std::string process_name(pid_t pid)
{
    return first_line("/proc/" + std::to_string(pid) + "/comm");
}

std::vector<pid_t> all_processes()
{
    std::vector<pid_t> pids;
    std::error_code error;
    fs::directory_iterator entry("/proc", error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename();
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
    const auto members = [](const FileLock& lock) {
        return std::tie(lock.pid, lock.is_exclusive, lock.is_waiting);
    };
    return members(left) == members(right);
}

std::vector<FileLock> locks_on(const struct stat& file)
{
    const std::string wanted = lock_table_name(file);
    std::vector<FileLock> locks;
    std::ifstream table("/proc/locks");
    for (std::string line; std::getline(table, line);) {
        // 1: FLOCK  ADVISORY  WRITE 1234 00:1a:5678 0 EOF, with "->" before what waits
        std::vector<std::string> columns = words_of(line);
        const auto arrow = std::find(columns.begin(), columns.end(), "->");
        const bool is_waiting = arrow != columns.end();
        if (is_waiting) {
            columns.erase(arrow);
        }
        if (columns.size() > 5 && columns[1] == "FLOCK" && columns[5] == wanted) {
            locks.push_back({std::stoi(columns[4]), columns[3] == "WRITE", is_waiting});
        }
    }
    return locks;
}

bool may_send_events(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::uint64_t capabilities = ~std::uint64_t{0};
    for (std::string name; status >> name;) {
        if (name == "CapEff:") {
            status >> std::hex >> capabilities;
        }
    }
    return (capabilities >> CAP_NET_ADMIN & 1U) != 0;
}

std::optional<ino_t> socket_on_event_port(pid_t port)
{
    std::ifstream table("/proc/net/netlink");
    std::string line;
    std::getline(table, line);  // the headings
    while (std::getline(table, line)) {
        // address, protocol, port, groups, five counts, inode
        const std::vector<std::string> columns = words_of(line);
        if (columns.size() > 9 && columns[1] == std::to_string(NETLINK_USERSOCK) &&
            columns[2] == std::to_string(port)) {
            return std::stoul(columns[9]);
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
