/// A running service whose system calls `strace` changes, in the executable as it is.
#pragma once

#include <string>

#include "tests/service.h"

/// Leaves all calls alone but those on one file.
std::string only_on(const std::string& path);

class TracedServiceTest : public ServiceTest {
protected:
    /// Runs `action` while `injections` are in force, in the words of strace, and then `done`;
    /// without one, waits until what was sent is worked through.
    void under(const std::string& injections, const Action& action, const Action& done = nullptr);
};
