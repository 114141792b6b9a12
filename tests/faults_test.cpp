/// System calls that fail: each call of the update cycle, of the event sender and of the ingress
/// once, with the errors that it can meet. `strace` makes them fail in the executable as it is.
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "store/documents.h"
#include "tests/traced_service.h"

namespace {

using Texts = std::vector<std::string>;

std::string failing(const std::string& call, int error, int when)
{
    return "-e inject=" + call + ":error=" + std::to_string(error) +
           ":when=" + std::to_string(when);
}

class Faults : public TracedServiceTest {
protected:
    static void allow_hdcp(const std::string& version) { send_line("hdcp_version 0 " + version); }
    static void report_current(int current)
    {
        send_line("power_v_value " + std::to_string(current));
    }
};

enum class Left { old, empty, rebuilt, changed };

struct Fault {
    const char* call;
    int when;  // counted from the start of the cycle
    bool on_document;
    std::vector<int> errors;
    std::string said;  // with the error's text behind it where it ends in a blank
    bool announced;
    Left left;
};

}  // namespace

TEST_F(Faults, OfACycleAreToldAndTheNextChangeIsPublished)
{
    constexpr const char* not_opened = "open for write_json_to_file: ";
    const Fault faults[] = {
        {"openat", 1, true, {ENOENT, EACCES, EMFILE, EIO}, "", true, Left::rebuilt},
        {"read", 1, true, {EIO, EISDIR}, "", true, Left::rebuilt},
        {"read", 1, true, {EINTR}, "", true, Left::changed},
        {"close", 1, true, {EIO}, "", true, Left::changed},
        {"openat", 2, true, {EACCES, EMFILE, ENOSPC, EROFS}, not_opened, false, Left::old},
        {"flock", 1, true, {EINTR, ENOLCK}, "flock LOCK_EX: ", false, Left::empty},
        {"write", 1, true, {ENOSPC, EIO, EINTR}, "write json file: ", true, Left::empty},
        {"fsync", 1, true, {EIO, ENOSPC}, "", true, Left::changed},
        {"flock", 2, true, {ENOLCK}, "", true, Left::changed},
        {"close", 2, true, {EIO}, "", true, Left::changed},
        {"socket", 1, false, {EMFILE, ENFILE, ENOBUFS}, "socket()) failed\n", false, Left::changed},
        {"bind", 1, false, {EADDRINUSE, EPERM, ENOMEM}, "bind failed\n", false, Left::changed},
        {"sendmsg", 1, false, {ENOBUFS, EPERM, EINTR}, "", false, Left::changed},
    };
    int current = 0;
    for (const Fault& fault : faults) {
        for (const int error : fault.errors) {
            SCOPED_TRACE(fault.call + std::string(" ") + std::to_string(fault.when) + ", " +
                         std::strerror(error));
            send_line("power_status 1");
            settle();
            events.take_names();
            std::map<std::string, std::string> others = texts();
            const std::string path = fault.on_document ? only_on(power_document.path) : "";
            under(path + failing(fault.call, error, fault.when),
                  [&] { report_current(++current); });

            const bool has_reason = !fault.said.empty() && fault.said.back() == ' ';
            const std::string reason = has_reason ? std::strerror(error) + std::string("\n") : "";
            EXPECT_EQ(take_standard_error(), fault.said + reason);
            EXPECT_EQ(events.take_names(),
                      fault.announced ? Texts{"e_power_json_update"} : Texts{});
            if (fault.left == Left::old || fault.left == Left::empty) {
                EXPECT_EQ(text_of("power.json"),
                          fault.left == Left::old ? others["power.json"] : "");
            } else {
                const Json::Value power = document("power.json")["power"];
                EXPECT_EQ(power["measured_power_current_a"], current);
                EXPECT_EQ(power.isMember("power_source"), fault.left == Left::changed);
            }

            report_current(++current);
            settle();
            EXPECT_EQ(value_of("power.json", ".power.measured_power_current_a"), current);
            EXPECT_EQ(events.take_names(), Texts{"e_power_json_update"});
            others["power.json"] = text_of("power.json");
            EXPECT_EQ(texts(), others);
        }
    }
}

TEST_F(Faults, AShortWriteIsAnnouncedAndTheNextChangeBuildsTheDocumentAnew)
{
    // The call is left out, and what stands in the file is left to be what was there: nothing.
    under(only_on(power_document.path) + "-e inject=write:retval=50:when=1",
          [] { send_line("power_status 1"); });
    EXPECT_EQ(text_of("power.json"), "");
    send_line("power_status 1");
    settle();
    EXPECT_EQ(value_of("power.json", ".power.power_source"), "Adapter");
    EXPECT_EQ(events.take_names(), (Texts{"e_power_json_update", "e_power_json_update"}));
}

TEST_F(Faults, OfOneDocumentLeaveTheOtherOfTheSameMessage)
{
    const std::string outputs = text_of("outputs.json");
    under(only_on(inputs_document.path) + failing("openat", EACCES, 2),
          [] { send_line("uac_control 1 0 1"); });
    EXPECT_EQ(take_standard_error(), "open for write_json_to_file: Permission denied\n");
    EXPECT_EQ(value_of("inputs.json", ".inputs[2].control.enabled"), true);
    EXPECT_EQ(value_of("outputs.json", ".outputs[0].audio.connected"), false);

    under(only_on(usb_host_document.path) + failing("openat", ENOSPC, 2),
          [] { send_line("link_status port=1"); });
    EXPECT_EQ(take_standard_error(), "open for write_json_to_file: No space left on device\n");
    EXPECT_EQ(value_of("inputs.json", ".inputs[1].video.signal_type"), "N/A");
    EXPECT_EQ(text_of("usb-host.json").size(), 1096U);
}

TEST_F(Faults, OfTheTimerLoseOneEvent)
{
#ifdef THREAD_SANITIZED
    GTEST_SKIP() << "this build has timers of its own";
#endif
    under(failing("timer_create", EAGAIN, 1), [&] { allow_hdcp("1"); });
    under(failing("timer_settime", EINVAL, 1), [&] { allow_hdcp("2"); });
    std::string said;
    under(
        failing("socket", EMFILE, 1), [&] { allow_hdcp("1"); },
        [&] { wait_until("the timer", [&] { return !(said += take_standard_error()).empty(); }); });
    EXPECT_EQ(said, "socket()) failed\n");
    allow_hdcp("2");
    EXPECT_EQ(events.wait().name, "e_input_json_update");
    EXPECT_EQ(value_of("inputs.json", ".inputs[0].video.hdcp.control.allowed_hdcp_version"),
              "HDCP 2.2");
}

TEST_F(Faults, OfReceivingLoseNoMessage)
{
    for (const int error : {EINTR, ENOMEM, ENOBUFS, EBADF}) {
        under("-e inject=recvfrom:error=" + std::to_string(error) + ":when=1..3", [&] {
            for (int i = 0; i < 9; ++i) {
                send_line("charger_status 1");
            }
        });
    }
    EXPECT_EQ(times_logged("USB-C Charger status message received charging_enabled=1"), 36);
}

TEST_F(Faults, OfTheSocketEndTheStart)
{
    struct Row {
        std::string injection, said;
    };
    const Row rows[] = {
        // The file of the run before stays in the way.
        {only_on(message_socket_path) + failing("unlink", EACCES, 1),
         "bind: Address already in use\n"},
        {failing("socket", EMFILE, 1), "socket: Too many open files\n"},
        {failing("socket", ENOBUFS, 1), "socket: No buffer space available\n"},
        {failing("bind", EACCES, 1), "bind: Permission denied\n"},
        {failing("bind", ENOMEM, 1), "bind: Cannot allocate memory\n"},
    };
    stop();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.injection);
        launch([&] {
            setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // which can't be done under a tracer
            const std::string command = "exec strace -D -qqq -o /dev/null -f " + row.injection;
            execl("/bin/sh", "sh", "-c", (command + " " + service_path()).c_str(), nullptr);
        });
        EXPECT_EQ(wait_exit(), 1);
        EXPECT_EQ(take_standard_error(), row.said);
    }
    start();
    settle();
}
