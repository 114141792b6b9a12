#include "tests/traced_service.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>

namespace {

bool is_traced(pid_t pid)
{
    const std::filesystem::path tasks = "/proc/" + std::to_string(pid) + "/task";
    return std::all_of(std::filesystem::directory_iterator(tasks), {}, [](const auto& task) {
        const std::string status = read_file(task.path() / "status");
        return status.find("TracerPid:\t0\n") == std::string::npos;
    });
}

}  // namespace

std::string only_on(const std::string& path)
{
    return "-P " + path + " ";
}

void TracedServiceTest::under(const std::string& injections, const Action& action,
                              const Action& done)
{
    const pid_t pid = service_pid();
    const pid_t tracer = fork();
    if (tracer == 0) {
        const std::string command = "exec strace -qqq -o /dev/null -f " + injections + " -p ";
        execl("/bin/sh", "sh", "-c", (command + std::to_string(pid) + " 2>/dev/null").c_str(),
              nullptr);
        std::_Exit(127);
    }
    wait_until("a tracer",
               [&] { return is_traced(pid) || waitpid(tracer, nullptr, WNOHANG) != 0; });
    action();
    done ? done() : settle();
    kill(tracer, SIGTERM);
    EXPECT_EQ(waitpid(tracer, nullptr, 0), tracer) << "strace has ended early";
}
