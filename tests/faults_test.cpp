/// System calls that fail, and kills at them: each call of the update cycle, of the event sender
/// and of the ingress. `strace` makes them fail in the executable as it is.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <tuple>

#include "store/documents.h"
#include "tests/tool.h"

namespace {

namespace fs = std::filesystem;

bool is_traced(pid_t pid)
{
    const fs::path tasks = "/proc/" + std::to_string(pid) + "/task";
    return std::all_of(fs::directory_iterator(tasks), {}, [](const auto& task) {
        const std::string status = read_file(task.path() / "status");
        return status.find("TracerPid:\t0\n") == std::string::npos;
    });
}

/// Leaves all calls alone but those on one file.
std::string only_on(const std::string& path)
{
    return "-P " + path + " ";
}

std::string failing(const std::string& call, int error, int when)
{
    return "-e inject=" + call + ":error=" + std::to_string(error) +
           ":when=" + std::to_string(when);
}

class Faults : public ServiceTest {
protected:
    /// Runs `action` while `injections` are in force, in the words of strace, and then `done`;
    /// without one, waits until what was sent is worked through.
    void under(const std::string& injections, const Action& action, const Action& done = nullptr)
    {
        const std::string pid = std::to_string(service_pid());
        const pid_t tracer = fork();
        if (tracer == 0) {
            const std::string command = "exec strace -qqq -o /dev/null -f " + injections + " -p ";
            execl("/bin/sh", "sh", "-c", (command + pid + " 2>/dev/null").c_str(), nullptr);
            std::_Exit(127);
        }
        wait_until("a tracer", [&] {
            return is_traced(service_pid()) || waitpid(tracer, nullptr, WNOHANG) != 0;
        });
        action();
        done ? done() : settle();
        kill(tracer, SIGTERM);
        EXPECT_EQ(waitpid(tracer, nullptr, 0), tracer) << "strace has ended early";
    }

    /// A start over what a killed run has left: three documents stay as they are, two are seeded,
    /// and then every change is published.
    void expect_restart();
};

/// What of a document is there, after a call has failed or the process was killed at it.
enum class Left { old, empty, rebuilt, changed };

struct Call {
    const char* name;
    int when;  // counted from the start of the cycle
    std::vector<int> errors;
    std::string said;  // with the error's text behind it where it ends in a blank
    bool is_announced;
    Left after_error;
    Left after_kill;
};

// clang-format off
const Call cycle[] = {
    {"openat",  1, {EACCES, EMFILE}, "", true, Left::rebuilt, Left::old},
    {"read",    1, {EIO, EISDIR}, "", true, Left::rebuilt, Left::old},
    {"read",    1, {EINTR}, "", true, Left::changed, Left::old},
    {"close",   1, {EIO}, "", true, Left::changed, Left::old},
    {"openat",  2, {EROFS, ENOSPC}, "open for write_json_to_file: ", false, Left::old, Left::old},
    {"flock",   1, {EINTR, ENOLCK}, "flock LOCK_EX: ", false, Left::empty, Left::empty},
    {"write",   1, {ENOSPC, EINTR}, "write json file: ", true, Left::empty, Left::empty},
    {"fsync",   1, {EIO}, "", true, Left::changed, Left::changed},
    {"flock",   2, {ENOLCK}, "", true, Left::changed, Left::changed},
    {"close",   2, {EIO}, "", true, Left::changed, Left::changed},
    {"socket",  1, {EMFILE}, "socket()) failed\n", false, Left::changed, Left::changed},
    {"bind",    1, {EADDRINUSE, ENOMEM}, "bind failed\n", false, Left::changed, Left::changed},
    {"sendmsg", 1, {ENOBUFS, EINTR}, "", false, Left::changed, Left::changed},
};

/// Each is written even where it repeats what the document says.
const std::pair<const StatusDocument*, const char*> changes[] = {
    {&power_document, "power_status 1"},
    {&inputs_document, "uac_control 0 0 0"},
    {&usb_host_document, "usb_host_in1 1"},
    {&ethernet_document, "ethernet_control 2 off"},
    {&outputs_document, "uac_control 0 0 0"},
};
// clang-format on

/// Only calls of the cycle are on the document; those of the event come after.
std::string place_of(const Call& call, const char* path)
{
    return &call < std::end(cycle) - 3 ? only_on(path) : "";
}

void Faults::expect_restart()
{
    auto kept = texts();
    kept["usb-host.json"] = *usb_host_document.default_text;
    kept["power.json"] = *power_document.default_text;
    start();
    EXPECT_EQ(texts(), kept);
    send_line("ethernet_status");  // alone builds what is left of an empty document
    for (const auto& [document, message] : changes) {
        send_line(message);
    }
    settle();
    for (const auto& [path, text] : texts()) {
        EXPECT_FALSE(parsed(text).empty()) << path;
    }
}

}  // namespace

TEST_F(Faults, OfACycleAreToldAndTheNextChangeIsPublished)
{
    int current = 0;
    const auto report_current = [&] { send_line("power_v_value " + std::to_string(++current)); };
    const auto descriptors = [this] {
        const fs::path folder = "/proc/" + std::to_string(service_pid()) + "/fd";
        return std::distance(fs::directory_iterator(folder), {});
    };
    for (const Call& call : cycle) {
        for (const int error : call.errors) {
            SCOPED_TRACE(call.name + std::string(" ") + std::to_string(call.when) + ", " +
                         std::strerror(error));
            send_line("power_status 1");
            settle();
            events.take_names();
            const auto descriptors_before = descriptors();
            auto others = texts();
            const std::string old = others["power.json"];
            under(place_of(call, power_document.path) + failing(call.name, error, call.when),
                  report_current);

            const bool has_reason = !call.said.empty() && call.said.back() == ' ';
            EXPECT_EQ(take_standard_error(),
                      call.said + (has_reason ? std::strerror(error) + std::string("\n") : ""));
            EXPECT_EQ(events.take_names(),
                      call.is_announced ? Lines{power_document.event} : Lines{});
            if (call.after_error == Left::old || call.after_error == Left::empty) {
                EXPECT_EQ(text_of("power.json"), call.after_error == Left::old ? old : "");
            } else {
                const Json::Value power = document("power.json")["power"];
                EXPECT_EQ(power["measured_power_current_a"], current);
                EXPECT_EQ(power.isMember("power_source"), call.after_error == Left::changed);
            }
            report_current();
            settle();
            EXPECT_EQ(document("power.json")["power"]["measured_power_current_a"], current);
            EXPECT_EQ(events.take_names(), Lines{power_document.event});
            others["power.json"] = text_of("power.json");
            EXPECT_EQ(texts(), others);
            // A call to close that is made to fail is not made.
            EXPECT_EQ(descriptors(), descriptors_before + (call.name == std::string("close")));
        }
    }
}

TEST_F(Faults, OfTheTimerLoseOneEvent)
{
#ifdef THREAD_SANITIZED
    GTEST_SKIP() << "this build has timers of its own";
#endif
    under(failing("timer_create", EAGAIN, 1), [] { send_line("hdcp_version 0 1"); });
    under(failing("timer_settime", EINVAL, 1), [] { send_line("hdcp_version 0 2"); });
    send_line("hdcp_version 0 0");
    EXPECT_EQ(events.wait(), inputs_document.event);
}

TEST_F(Faults, OfReceivingLoseNoMessage)
{
    const Lines logged = logged_by([this] {
        for (const int error : {EINTR, ENOMEM}) {
            under("-e inject=recvfrom:error=" + std::to_string(error) + ":when=1..3", [&] {
                for (int i = 0; i < 9; ++i) {
                    send_line("charger_status 1");
                }
            });
        }
    });
    const std::string line = "USB-C Charger status message received charging_enabled=1";
    EXPECT_EQ(std::count(logged.begin(), logged.end(), line), 18);
}

TEST_F(Faults, OfTheSocketAndTheThreadsEndTheStart)
{
    const std::pair<std::string, const char*> rows[] = {
        // The file of the run before stays in the way.
        {only_on(message_socket_path) + failing("unlink", EACCES, 1),
         "bind: Address already in use\n"},
        {failing("socket", EMFILE, 1), "socket: Too many open files\n"},
        {failing("bind", EACCES, 1), "bind: Permission denied\n"},
#ifndef THREAD_SANITIZED  // whose runtime has a thread of its own
        {failing("clone3,clone", EAGAIN, 1), "pthread_create: Resource temporarily unavailable\n"},
        {failing("clone3,clone", EAGAIN, 2), "pthread_create: Resource temporarily unavailable\n"},
#endif
    };
    stop();
    for (const auto& [injection, said] : rows) {
        fs::remove(inputs_document.path);
        launch(under_strace("-o /dev/null " + injection));
        EXPECT_EQ(wait_exit(), 1) << injection;
        EXPECT_EQ(take_standard_error(), said);
        EXPECT_EQ(text_of("inputs.json"), inputs_default_text);  // seeded before the threads start
    }
    start();
}

TEST_F(Faults, OfTheClientLibraryAreToldAtOnce)
{
    const std::string document = only_on(fs::canonical(power_document.path));
    const std::string get = " get power power.power_source";
    const std::string send = " send power_status 0";
    const std::string watch = " watch --for 0.001 --changes-only";
    const std::string broken = "/var/run/status/power.json: Input/output error\n";
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"flock:error=EIO", get, broken},
        {"read:error=EIO", get, broken},
        {"newfstatat,fstat,fstat64,statx:error=EIO", get, broken},
        {"setsockopt:error=ENOMEM", send,
         "can't send to /tmp/json_app.sock: Cannot allocate memory\n"},
        {"sendto:error=EINTR:when=1..3", send, ""},
        {"epoll_ctl:error=ENOSPC", watch, "can't watch the documents: No space left on device\n"},
        {"inotify_add_watch:error=ENOSPC:when=2", watch,
         "can't watch the documents: No space left on device\n"},
        {"bind:error=EPERM", watch, ""},
    };
    for (const auto& [injection, words, said] : rows) {
        std::string command = "exec strace -qqq -o /dev/null -e inject=";
        command.append(injection).append(words == get ? " " + document : " ");
        command.append(Tool::path()).append(words);
        const Tool tool({}, "", [&command] {
            setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // which can't be done under a tracer
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        });
        EXPECT_EQ(tool.wait(), said.empty() ? 0 : 1) << command;
        EXPECT_EQ(tool.complaint(), said.empty() ? "" : "statusctl: " + said) << command;
    }
}

TEST_F(Faults, ThatKillLeaveTheOldTextNoneOrTheNew)
{
    for (const Call& call : cycle) {
        const auto number = static_cast<std::size_t>(&call - cycle);
        // The events of the others come later, or never.
        const auto& [document, message] =
            changes[place_of(call, "").empty() ? 0 : number % std::size(changes)];
        SCOPED_TRACE(std::string(document->path) + ", " + call.name);
        const std::string before = read_file(document->path);
        under(
            place_of(call, document->path) + "-e inject=" + call.name +
                ":signal=KILL:when=" + std::to_string(call.when),
            [message = message] { send_line(message); }, [this] { EXPECT_EQ(wait_exit(), -1); });
        if (call.after_kill == Left::changed) {
            EXPECT_FALSE(parsed(read_file(document->path)).empty());
        } else {
            EXPECT_EQ(read_file(document->path), call.after_kill == Left::old ? before : "");
        }
        expect_restart();
        ASSERT_FALSE(HasFailure());
    }
}
