/// statusctl, run as people and scripts run it.
#pragma once

#include <sys/types.h>

#include "tests/service.h"

/// One that runs, with files of its own for what it reads and writes. It must have ended, by
/// `wait`, before the case does.
class Tool {
public:
    /// Starts it with these words; `prepare` runs in its process before it.
    explicit Tool(
        std::vector<std::string> words, const std::string& input = "",
        const Action& prepare = [] {});
    ~Tool();
    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;

    /// Waits until it ends; gives its exit status, -1 where it was killed.
    int wait() const;
    /// What it has written so far to standard output, and to standard error.
    std::string output() const { return read_file(path_of(1)); }
    std::string complaint() const { return read_file(path_of(2)); }
    /// Waits until its output holds this.
    void wait_output(const std::string& part) const
    {
        wait_until(part, [&] { return output().find(part) != std::string::npos; });
    }

    /// The executable, beside this one.
    static std::string path();

    pid_t pid;

private:
    std::string path_of(int stream) const
    {
        return "/proc/self/fd/" + std::to_string(streams_[stream]);
    }

    int streams_[3];
};
