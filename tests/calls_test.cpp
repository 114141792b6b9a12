/// Which system calls the service makes, at its start and for each kind of message: their order,
/// flags and modes, and that there is no other. `strace` tells them.
#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <sstream>
#include <utility>

#include "tests/service.h"
#include "tests/transcript.h"

namespace {

namespace fs = std::filesystem;

using Calls = ServiceTest;

/// The calls of a piece of a trace in their words, without what differs from run to run. Those to
/// receive come first, each form once, as another thread makes them.
class Translator {
public:
    std::string pid;  // of the service

    std::string of(const std::string& trace)
    {
        Lines calls;
        std::istringstream lines(trace);
        for (std::string thread, line; lines >> thread && std::getline(lines >> std::ws, line);) {
            const std::string call = whole(thread, line);
            if (call.rfind("recv", 0) != 0) {
                calls.push_back(call);
            } else if (std::find(calls.begin(), calls.end(), call) == calls.end()) {
                calls.insert(calls.begin(), call);
            }
        }
        std::string text;
        for (const std::string& call : calls) {
            text += (text.empty() || call.empty() ? "" : "; ") + call;
        }
        for (const auto& [word, meaning] : words_) {
            text = std::regex_replace(text, meaning, word);
        }
        return text;
    }

    /// From now on calls that follow each other so are one word. In both X stands for a file, and N
    /// for a number.
    void name(const std::string& word, const std::string& meaning)
    {
        static const std::regex special("[()|.{}]");
        std::string pattern = std::regex_replace(meaning, special, R"(\$&)");
        pattern = std::regex_replace(pattern, std::regex(R"(\bN\b)"), R"(\d+)");
        pattern = std::regex_replace(pattern, std::regex(R"(\bX\b)"), R"(\1)");
        if (const std::size_t file = pattern.find(R"(\1)"); file != std::string::npos) {
            pattern.replace(file, 2, R"(([\w.-]+))");
        }
        words_.emplace_back(std::regex_replace(word, std::regex("X"), "$$1"), std::regex(pattern));
    }

private:
    /// The call in a line; "" where it goes on in another, or is one of the C library alone.
    std::string whole(const std::string& thread, std::string line)
    {
        static const std::regex unfinished(R"((.*) <unfinished \.\.\.>)");
        static const std::regex resumed(R"(<\.\.\. \w+ resumed>(.*))");
        static const std::pair<std::regex, const char*> forms[] = {
            {std::regex("AT_FDCWD<[^>]*>, "), ""},
            {std::regex(R"(^(read|write|recvfrom)\((\d+<[^>]*>), "(\\.|[^"\\])*"\.*, )"),
             "$1($2, "},
            {std::regex(R"(\{st_mode[^}]*\}, |0x\w+, (?=0\)))"), ""},
            {std::regex(R"(\d+<socket:[^>]*>|\d+<(UNIX|NETLINK)[^>]*>)"), "socket"},
            {std::regex(R"(\d+<[^>]*/([^>/]*)>)"), "$1"},
            {std::regex(R"(\[\{iov_base=.*nlmsg_seq=0, nlmsg_pid=own\}.*iov_len=1040\}\])"),
             "1040 bytes"},
            {std::regex(R"(\{sigev_value=.*sigev_notify=(\w+).*)"), "$1)"},
            {std::regex(R"((\w+)=\{tv_sec=(\d+), tv_nsec=(\d+)\})"), "$1=$2.$3"},
            {std::regex(R"((\.log), \d+\) .*)"), "$1)"},
            {std::regex(R"( \([A-Z][a-z ]+\)$)"), ""},
            {std::regex(R"(\) += (0|socket|[\w.-]*[a-zA-Z_][\w.-]*)$)"), ")"},
            {std::regex(" += "), " = "},
            {std::regex(R"(, NULL, NULL\).*)"), ")"},
            {std::regex(R"(/var/run/status/(?=\w))"), ""},
        };
        std::smatch found;
        if (std::regex_match(line, found, unfinished)) {
            begun_[thread] = found[1];
            return "";
        }
        if (std::regex_match(line, found, resumed)) {
            const auto beginning = begun_.extract(thread);
            line = beginning.empty() ? "" : beginning.mapped() + found[1].str();
        }
        for (const char* part : {", \"\", {st_mode", "zoneinfo", "localtime", "exit("}) {
            if (line.find(part) != std::string::npos) {
                return "";
            }
        }
        for (const std::string of : {"nl_pid=", "nlmsg_pid="}) {
            const std::size_t place = line.find(of + pid + (of[2] == '_' ? "," : "}"));
            if (place != std::string::npos) {
                line.replace(place + of.size(), pid.size(), "own");
            }
        }
        for (const auto& [form, words] : forms) {
            line = std::regex_replace(line, form, words);
        }
        return line;
    }

    std::map<std::string, std::string> begun_;  // by thread
    std::vector<std::pair<std::string, std::regex>> words_;
};

}  // namespace

// Steps: a message; "start", or "start without documents"; "ports TEXT" and "videoip TEXT" for the
// drivers' files; "later" for what comes after three seconds; "word NAME = CALLS" for what is told
// in short from here on.
TEST_F(Calls, ComeOutAsTheyAreKept)
{
#ifdef SANITIZED
    GTEST_SKIP() << "a sanitizer makes calls of its own";
#endif
    const std::string file = "/tmp/trace";
    std::size_t taken = 0;
    // What was traced up to the line of the message that tells that all is done.
    const auto settled = [&] {
        settle();
        std::size_t last = std::string::npos;
        std::size_t end = std::string::npos;
        std::string trace;
        wait_until("the trace", [&] {
            trace = read_file(file);
            last = trace.find(": Unknown message type 1000", taken);
            end = trace.find('\n', last);
            return (last != std::string::npos && end != std::string::npos) ||
                   trace.size() > 1 << 20;
        });
        if (trace.size() > 1 << 20) {
            [] { FAIL() << "calls without end"; }();
            return std::string();
        }
        const std::size_t begin = std::exchange(taken, end + 1);
        return trace.substr(begin, trace.rfind('\n', last) + 1 - begin);
    };
    Translator calls;
    play_transcript("calls.trace", [&](const std::string& line) {
        const std::string verb = line.substr(0, line.find(' '));
        if (verb == "ports" || verb == "videoip") {
            write_file(verb == "ports" ? ethernet_port_status_path : videoip_timing_path,
                       line.substr(verb.size()));
            return std::string();
        }
        if (verb == "word") {
            const std::size_t equals = line.find(" = ");
            calls.name(line.substr(5, equals - 5), line.substr(equals + 3));
            return std::string();
        }
        std::string beginning;
        if (verb == "start") {
            stop();
            fs::remove_all(verb == line ? file : status_directory);
            taken = 0;
            start(under_strace(
                "-y -s 100 -o " + file +
                " -e trace=!futex,mmap,munmap,mprotect,madvise,brk,rseq,set_robust_list,clone3,"
                "rt_sigprocmask,rt_sigaction,rt_sigtimedwait,rt_sigreturn,lseek,getpid,"
                "sched_yield,restart_syscall"));
            calls.pid = std::to_string(service_pid());
            beginning = log_configuration_path;
        } else if (verb == "later") {
            wait_until("the end of the event's thread",
                       [&] { return read_file(file, taken).find("exit(") != std::string::npos; });
        } else {
            send_line(line);
        }
        const std::string trace = settled();
        return calls.of(trace.substr(trace.rfind('\n', trace.find(beginning)) + 1));
    });
}
