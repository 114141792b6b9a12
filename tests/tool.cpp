#include "tests/tool.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

Tool::Tool(std::vector<std::string> words, const std::string& input, const Action& prepare)
{
    for (int& stream : streams_) {
        stream = memfd_create("statusctl", MFD_CLOEXEC);
    }
    write_file(path_of(0), input);
    words.insert(words.begin(), path());
    std::vector<char*> arguments(words.size() + 1);  // the last is null
    std::transform(words.begin(), words.end(), arguments.begin(),
                   [](std::string& word) { return word.data(); });
    pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (int stream = 0; stream < 3; ++stream) {
            dup2(streams_[stream], stream);
        }
        prepare();
        execv(arguments[0], arguments.data());
        _exit(127);
    }
}

Tool::~Tool()
{
    for (const int stream : streams_) {
        close(stream);
    }
}

std::string Tool::path()
{
    return std::filesystem::read_symlink("/proc/self/exe").replace_filename("statusctl");
}

int Tool::wait() const
{
    int status = 0;
    if (!wait_until("the end of statusctl", [&] { return waitpid(pid, &status, WNOHANG) != 0; })) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
