#include "tests/tool.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

Tool::Tool(std::vector<std::string> words, const std::string& input, const Action& prepare)
{
    const char* const files[] = {"/tmp/in", "/tmp/out", "/tmp/err"};
    for (const char* file : files) {
        write_file(file, file == files[0] ? input : "");
    }
    words.insert(words.begin(), path());
    pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        prepare();
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        for (int stream = 0; stream < 3; ++stream) {
            const int file = open(files[stream], O_RDWR | O_APPEND);
            dup2(file, stream);
            close(file);
        }
        execv(arguments[0], arguments.data());
        _exit(127);
    }
}

std::string Tool::path()
{
    return std::filesystem::read_symlink("/proc/self/exe").replace_filename("statusctl");
}

int Tool::wait() const
{
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int Tool::end() const
{
    kill(pid, SIGTERM);
    return wait();
}
