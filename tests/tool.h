/// statusctl, run as people and scripts run it.
#pragma once

#include <sys/types.h>

#include "tests/service.h"

/// One that runs, with what it reads and writes in files of the sandbox.
class Tool {
public:
    /// Starts it with these words; `prepare` runs in its process before it.
    explicit Tool(
        std::vector<std::string> words, const std::string& input = "",
        const Action& prepare = [] {});

    /// Waits until it ends; gives its exit status, -1 where it was killed.
    int wait() const;
    /// Asks it to end; gives its exit status.
    int end() const;

    /// The executable, beside this one.
    static std::string path();
    /// What the last one has written so far.
    static std::string output() { return read_file("/tmp/out"); }
    static std::string complaint() { return read_file("/tmp/err"); }

    pid_t pid;
};
