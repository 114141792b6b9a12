#include "tools/statusctl/system_state.h"

#include <linux/capability.h>
#include <linux/netlink.h>
#include <sys/sysmacros.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

#include "tools/statusctl/printable.h"

namespace statusctl {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kept_name_size = 15;

/// The lines of a file under /proc, each as its words.
std::vector<std::vector<std::string>> rows_of(const std::string& path)
{
    std::vector<std::vector<std::string>> rows;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        rows.emplace_back(std::istream_iterator<std::string>(words),
                          std::istream_iterator<std::string>());
    }
    return rows;
}

std::string process_name(pid_t pid)
{
    std::string name;
    std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
    std::getline(file, name);
    return name;
}

/// The names in a folder; those that can be read before it goes, as folders of processes do.
std::vector<fs::path> entries_of(const fs::path& folder)
{
    std::vector<fs::path> entries;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        entries.push_back(entry->path());
    }
    return entries;
}

std::vector<pid_t> all_processes()
{
    std::vector<pid_t> pids;
    for (const fs::path& entry : entries_of("/proc")) {
        const std::string name = entry.filename();
        if (name.find_first_not_of("0123456789") == std::string::npos) {
            pids.push_back(std::stoi(name));
        }
    }
    return pids;
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

std::vector<std::string> locks_on(const struct stat& file)
{
    const std::string wanted = lock_table_name(file);
    std::vector<std::string> locks;
    for (const auto& row : rows_of("/proc/locks")) {
        // 1: FLOCK  ADVISORY  WRITE 1234 00:1a:5678 0 EOF, with "->" before what waits
        if (row.size() > 5 && row[1] == "FLOCK" && row[5] == wanted) {
            locks.push_back((row[3] == "WRITE" ? "locked by " : "locked for reading by ") +
                            process_text(std::stoi(row[4])));
        }
    }
    return locks;
}

bool may_send_events(pid_t pid)
{
    for (const auto& row : rows_of("/proc/" + std::to_string(pid) + "/status")) {
        if (row.size() > 1 && row[0] == "CapEff:") {
            return (std::stoull(row[1], nullptr, 16) >> CAP_NET_ADMIN & 1U) != 0;
        }
    }
    return true;
}

std::optional<ino_t> socket_on_event_port(pid_t port)
{
    for (const auto& row : rows_of("/proc/net/netlink")) {
        // address, protocol, port, groups, five counts, inode
        if (row.size() > 9 && row[1] == std::to_string(NETLINK_USERSOCK) &&
            row[2] == std::to_string(port)) {
            return std::stoul(row[9]);
        }
    }
    return std::nullopt;
}

std::optional<pid_t> process_with_socket(ino_t socket)
{
    const std::string target = "socket:[" + std::to_string(socket) + "]";
    for (const pid_t pid : all_processes()) {
        for (const fs::path& file : entries_of("/proc/" + std::to_string(pid) + "/fd")) {
            std::error_code ignored;
            if (fs::read_symlink(file, ignored) == target) {
                return pid;
            }
        }
    }
    return std::nullopt;
}

}  // namespace statusctl
