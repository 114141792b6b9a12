/// statusctl, driven as people and scripts drive it.
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/netlink.h>
#include <pty.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <thread>
#include <tuple>
#include <utility>

#include "tests/table_test.h"
#include "tests/tool.h"

namespace {

using Words = std::vector<std::string>;

/// Checks that the tool gives this status and nothing but this text: its output with status 0,
/// else its complaint.
void expect_result(const Words& words, int status, const std::string& text,
                   const std::string& input = "")
{
    SCOPED_TRACE(::testing::PrintToString(words));
    EXPECT_EQ(Tool(words, input).wait(), status);
    EXPECT_EQ(Tool::output(), status == 0 ? text : "");
    EXPECT_EQ(Tool::complaint(), status == 0 ? "" : "statusctl: " + text + "\n");
}

void wait_output(const std::string& part)
{
    wait_until(part, [&part] { return Tool::output().find(part) != std::string::npos; });
}

/// Sends an event as any process of the user can.
void send_event(const std::string& name, uid_t user = 0, int times = 1)
{
    const pid_t child = fork();
    if (child == 0) {
        std::string message(NLMSG_HDRLEN + 1024, '\0');
        const nlmsghdr header = {static_cast<std::uint32_t>(message.size()), 0, 0, 0, 0};
        std::memcpy(message.data(), &header, sizeof header);
        message.replace(NLMSG_HDRLEN, name.size(), name);
        sockaddr_nl group = {AF_NETLINK, 0, 0, 1};
        if (user != 0 && setuid(user) != 0) {
            _exit(0);  // that user can't be had: as good as one that is not believed
        }
        const int descriptor = socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK);
        for (int i = 0; i < times; ++i) {
            sendto(descriptor, message.data(), message.size(), 0,
                   reinterpret_cast<sockaddr*>(&group), sizeof group);
        }
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

std::string hexadecimal(const unsigned char* bytes, ssize_t size)
{
    std::string text;
    for (const unsigned char* byte = bytes; byte < bytes + size; ++byte) {
        text += {"0123456789abcdef"[*byte / 16], "0123456789abcdef"[*byte % 16]};
    }
    return text;
}

/// Where no service is started, the test can stand in its place.
class Statusctl : public StoppedServiceTest {
protected:
    void bind_socket()
    {
        socket_ = socket(AF_UNIX, SOCK_DGRAM, 0);
        sockaddr_un address = {AF_UNIX, {}};
        std::strcpy(address.sun_path, message_socket_path);
        ASSERT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ~Statusctl() override { close(socket_); }

    /// The datagrams that have come, in hexadecimal digits.
    Words received() const
    {
        Words datagrams;
        unsigned char buffer[2048];
        ssize_t size = 0;
        while ((size = recv(socket_, buffer, sizeof buffer, MSG_DONTWAIT)) >= 0) {
            datagrams.push_back(hexadecimal(buffer, size));
        }
        return datagrams;
    }

    int socket_ = -1;
};

TEST_F(Statusctl, EveryMessageArrivesToTheByte)
{
    bind_socket();
    for (const Json::Value& row : rows_of("Statusctl.EveryMessageArrivesToTheByte")) {
        const std::string line = joined(row["line"]);
        std::string datagram = joined(row["datagram"]);
        datagram.erase(std::remove(datagram.begin(), datagram.end(), ' '), datagram.end());
        expect_result({"send", "--file", "-"}, 0, "", "# a day\n\n " + line + "\r\n");
        EXPECT_EQ(received(), Words{datagram}) << line;
    }
    // From the command line, where a text may look like an option.
    expect_result({"send", "power_v_value", "-1"}, 0, "");
    expect_result({"send", "link_status", "port=1", "isHpd=3"}, 0, "");
    expect_result({"send", "--raw", ""}, 0, "");
    EXPECT_EQ(received(), (Words{"09000000020000002d31", "020000000400000001000300", ""}));
    expect_result({"send", "--file", "-"}, 0, "== A \\u001bday\n", "say A \033day\nwait 1ms\n");
}

TEST_F(Statusctl, WhatIsWrongIsRefusedAndNothingSent)
{
    bind_socket();
    for (const Json::Value& row : rows_of("Statusctl.WhatIsWrongIsRefusedAndNothingSent")) {
        expect_result({"send", "--file", "-"}, 2, "line 2: " + joined(row["reason"]),
                      "ethernet_status\n" + joined(row["line"]));
    }
    EXPECT_EQ(Tool({"send", "--list"}).wait(), 0);
    wait_output("    PinAssignment           int32           4 C, 8 D, 16 E\n");
    expect_result({"send"}, 2, "there is no message; send --list shows the types");
    for (const Words& options : {Words{"--list"}, {"--raw", "00"}, {"--file", "-"}}) {
        Words words = {"send", "ethernet_status"};
        words.insert(words.begin() + 1, options.begin(), options.end());
        expect_result(words, 2, "a message in words goes with no option");
    }
    expect_result({"send", "--file", "/tmp/none"}, 2,
                  "can't read /tmp/none: No such file or directory");
    EXPECT_EQ(Tool({"send", "--list", "--raw", "00"}).wait(), 2);
    EXPECT_EQ(received(), Words());
}

TEST_F(Statusctl, NoServiceAndAFullQueueAreTold)
{
    const std::string failure = "can't send to /tmp/json_app.sock: ";
    const std::string not_there = failure + "the service is not there";
    expect_result({"send", "ethernet_status"}, 1, not_there);
    bind_socket();
    expect_result({"send", "--file", "-"}, 1, failure + "Message too long",
                  "raw " + std::string(1 << 20, '0'));
    std::string flood;
    for (int i = 0; i < 5000; ++i) {
        flood += "ethernet_status\n";
    }
    expect_result({"send", "--file", "-"}, 1, failure + "the service's receive queue stays full",
                  flood);
    close(std::exchange(socket_, -1));
    expect_result({"send", "ethernet_status"}, 1, not_there);  // the file is left
}

constexpr const char* adapter =
    R"("document":"power","new":"Adapter","old":"PoE","path":"power.power_source")";
constexpr const char* poe =
    R"("document":"power","new":"PoE","old":"Adapter","path":"power.power_source")";
constexpr const char* silent =
    R"("document":"outputs","new":false,"old":true,"path":"outputs[0].audio.connected")";

TEST_F(Statusctl, WatchShowsChangesAtEventsAndThoseOfTheSilentDocument)
{
    start();
    const Tool watch({"watch", "--json"});
    wait_output(R"("document":"outputs","state":{"outputs":[{"audio":{)");
    send_line("power_status 1");
    wait_output(adapter);
    send_line("uac_control 0 1 0");
    wait_output(silent);
    stop();
    start();  // writes power.json anew and announces nothing
    wait_output(poe);
    EXPECT_EQ(watch.end(), 0);
    EXPECT_EQ(Tool::complaint(), "");
}

TEST_F(Statusctl, WatchDoesWithoutEventsWhereTheyAreNotPermitted)
{
    start();
    const Tool watch({"watch", "--json"}, "", [] { prctl(PR_CAPBSET_DROP, CAP_NET_ADMIN); });
    wait_output(R"("document":"outputs","state")");
    send_line("power_status 1");
    wait_output(adapter);
    EXPECT_EQ(watch.end(), 0);
    EXPECT_EQ(Tool::complaint(),
              "statusctl: without events (Operation not permitted, they need "
              "CAP_NET_ADMIN); watching the files instead\n");
}

TEST_F(Statusctl, AnEventIsAHintOfThoseWhoMayGiveIt)
{
    start();
    const Tool watch({"watch", "--json", "ethernet.json", "power"});
    wait_output(R"("document":"power","state")");
    // Had the forged event been taken for one, its document would be shown before the other.
    write_document("ethernet.json", "[]");
    send_event("e_ethernet_json_update", 65534);
    send_event("");
    write_document("power.json", R"({"power":{"power_source":"Adapter"}})");
    send_event("e_power_json_update");
    wait_output(adapter);
    EXPECT_EQ(Tool::output().find(R"("document":"ethernet","new")"), std::string::npos);
    EXPECT_NE(Tool::output().find(R"("old":11900,"path":"power.measured_power_voltage_v")"),
              std::string::npos);
    send_event("e_ethernet_json_update");
    wait_output(R"("document":"ethernet","new":[],"old":{)");

    // More events than the socket holds: what they were about is unknown, so all is read.
    kill(watch.pid, SIGSTOP);
    write_document("power.json", R"({"power":{"power_source":"PoE"},"new":1})");
    send_event("e_other_json_update", 0, 5000);
    kill(watch.pid, SIGCONT);
    wait_output(poe);
    wait_output(R"({"document":"power","new":1,"path":"new","time")");

    // The service's own user is believed as well, where there is another than root.
    const uid_t own_user = chown(status_directory, 65534, 65534) == 0 ? 65534 : 0;
    write_document("power.json", "{\"power\":\n{");
    send_event("e_power_json_update", own_user);
    wait_output(R"("document":"power","problem":"Line 2, Column 2 Missing '}')");
    std::filesystem::remove_all(status_directory);
    EXPECT_EQ(watch.wait(), 1);
    EXPECT_EQ(Tool::complaint(), "statusctl: /var/run/status is gone\n");
}

TEST_F(Statusctl, AWatchThatFellBehindReadsAllAnew)
{
    start();
    const Tool watch({"watch", "--json", "outputs"});
    wait_output(R"("document":"outputs","state")");
    kill(watch.pid, SIGSTOP);
    for (int i = 0; i < 10000; ++i) {  // more than the kernel keeps
        write_file("/var/run/status/other", "");
        std::filesystem::remove("/var/run/status/other");
    }
    send_line("uac_control 0 1 0");
    settle();
    kill(watch.pid, SIGCONT);
    wait_output(silent);
}

TEST_F(Statusctl, WatchIsReadableAndEndsByItself)
{
    start();
    const Tool watch({"watch", "power", "--count", "1"});
    wait_output("power.power_source                                 \"PoE\"\n");
    send_line("power_v_value 7");
    EXPECT_EQ(watch.wait(), 0);
    const std::string text = Tool::output();
    EXPECT_EQ(text.substr(text.rfind("  power  ")),
              "  power     power.measured_power_current_a                     0 -> 7\n");
    write_document("power.json", R"({"power":{")" + std::string(50, 'x') + R"(":1}})");
    const Tool next({"watch", "power", "ethernet", "--count", "3"});
    wait_output("." + std::string(50, 'x') + "  1\n");
    write_document("power.json", "{");
    send_event("e_power_json_update");
    wait_output("  power     can't be read: Line 1, Column 2 ");
    send_event("e_power_json_update");  // what stays as it is isn't told again
    send_line("ethernet_control 1 off");
    wait_output("  true -> false\n");
    send_line("power_v_value 8");
    EXPECT_EQ(next.wait(), 0);
    EXPECT_NE(Tool::output().find("1 -> (none)\n"), std::string::npos) << Tool::output();
    EXPECT_EQ(Tool({"watch", "--changes-only", "--for", "0.01"}).wait(), 0);
    EXPECT_EQ(Tool::output(), "");
    stop();
    write_document("power.json", R"({"a":"b\" -> \"\\"})");
    EXPECT_EQ(Tool({"watch", "power", "--for", "0.01"}).wait(), 0);
    EXPECT_NE(Tool::output().find(R"( "b\" -> \"\\")"), std::string::npos) << Tool::output();
    std::filesystem::remove_all(status_directory);
    expect_result({"watch"}, 1, "can't watch /var/run/status: No such file or directory");
}

/// What the tool writes to a terminal of this kind.
std::string shown_on_terminal(const char* term, const char* no_color)
{
    int terminal = -1;
    const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (pid == 0) {
        const std::string tool = Tool::path();
        term != nullptr ? setenv("TERM", term, 1) : unsetenv("TERM");
        no_color != nullptr ? setenv("NO_COLOR", no_color, 1) : unsetenv("NO_COLOR");
        execl(tool.c_str(), tool.c_str(), "watch", "power", "--for", "0.01", nullptr);
        _exit(127);
    }
    if (pid == -1) {
        ADD_FAILURE() << "no terminal: " << std::strerror(errno);
        return "";
    }
    std::string text;
    char letter = 0;
    while (read(terminal, &letter, 1) == 1) {
        text += letter;
    }
    waitpid(pid, nullptr, 0);
    close(terminal);
    return text;
}

TEST_F(Statusctl, ColoursAreForTerminalsThatHaveThem)
{
    start();
    const std::tuple<const char*, const char*, bool> rows[] = {{"xterm", nullptr, true},
                                                               {"xterm", "", true},
                                                               {"xterm", "1", false},
                                                               {"dumb", nullptr, false},
                                                               {nullptr, nullptr, false}};
    for (const auto& [term, no_color, has_colours] : rows) {
        const std::string text = shown_on_terminal(term, no_color);
        EXPECT_NE(text.find("power.power_source"), std::string::npos) << text;
        EXPECT_EQ(text.find("\033[36mpower   \033[0m") != std::string::npos, has_colours) << text;
    }
    write_file("/tmp/day", "say A day\npower_status 1\n");
    EXPECT_EQ(Tool({"send", "--file", "/tmp/day", "--echo"}).wait(), 0);
    EXPECT_EQ(Tool::output().substr(0, 9), "== A day\n");
    EXPECT_NE(Tool::output().find("  send  power_status 1\n"), std::string::npos);
    EXPECT_EQ(Tool({"--help"}).wait(), 0);
    EXPECT_NE(Tool::output().find("watch "), std::string::npos);
}

TEST_F(Statusctl, WatchEndsWhereItCanNotWatch)
{
#ifdef SANITIZED
    GTEST_SKIP() << "the sanitizers' runtimes need descriptors of their own";
#endif
    start();
    const Tool watch({"watch"}, "", [] {
        const rlimit descriptors = {4, 4};  // the fourth goes to the end's signals
        setrlimit(RLIMIT_NOFILE, &descriptors);
        for (int inherited = 3; inherited < 100; ++inherited) {
            close(inherited);
        }
    });
    EXPECT_EQ(watch.wait(), 1);
    EXPECT_EQ(Tool::complaint(),
              "statusctl: without events (Too many open files); watching the files instead\n"
              "statusctl: can't watch /var/run/status: Too many open files\n");
}

TEST_F(Statusctl, GetPrintsDocumentsAndMembers)
{
    start();
    const std::string path = "/var/run/status/";
    expect_result({"get", "power", "power.power_source"}, 0, "PoE\n");
    expect_result({"get", "power.json", "power.power_source", "--json"}, 0, "\"PoE\"\n");
    expect_result({"get", "inputs", "inputs.0.video.connected"}, 0, "false\n");
    expect_result({"get", "inputs", "inputs[1].port_type"}, 0, "USB-C\n");
    expect_result({"get", "inputs", "inputs[3]"}, 1, path + "inputs.json: no member inputs[3]");
    for (const char* wrong : {"a..b", ".a", "a[", "a[0", "a[]", "a."}) {
        expect_result({"get", "inputs", wrong}, 2,
                      wrong + std::string(" is no path such as inputs[0].video.connected"));
    }
    expect_result({"get", "input"}, 2,
                  "there is no document input; there are inputs usb-host ethernet power outputs");
    EXPECT_EQ(Tool({"get"}).wait(), 0);
    stop();

    // Text of others can't act on a terminal.
    write_document("power.json",
                   // NOLINTNEXTLINE(misc-misleading-bidirectional): to see it escaped
                   "[\"\x1B[2J \\u0000 \xC2\x9B \xE2\x80\xAE \xFF \xC0\xAF \xED\xA0\x80 "
                   "\xC3\xA9 \xF0\x9F\x98\x80 \x7F \xF3\xA0\x80\x81\"]");
    expect_result({"get", "power", "[0]"}, 0,
                  "\\u001b[2J \\u0000 \\u009b \\u202e \\xff \\xc0\\xaf \\xed\\xa0\\x80 "
                  "\xC3\xA9 \xF0\x9F\x98\x80 \\u007f \\U000e0001\n");
    write_document("power.json", "[\"\x7F\xC3\xA9\"]");
    expect_result({"get", "power", "0", "--json"}, 0, "\"\\u007f\\u00e9\"\n");
    write_document("power.json", "{}{}");
    EXPECT_EQ(Tool({"get", "power"}).wait(), 1);
    write_document("power.json", std::string(100000, '['));
    expect_result({"get", "power"}, 1, path + "power.json: nested too deeply");
    write_document("power.json", "");
    expect_result({"get", "power"}, 1, path + "power.json: empty");
    std::filesystem::remove(path + "power.json");
    expect_result({"get", "power"}, 1, path + "power.json: No such file or directory");
    EXPECT_EQ(Tool({"get"}).wait(), 1);
    const int locked = open((path + "outputs.json").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(locked, LOCK_EX), 0);
    expect_result({"get", "outputs"}, 1, path + "outputs.json: locked by another process");
    close(locked);
}

TEST_F(Statusctl, ARewriteIsWaitedFor)
{
    start();
    write_document("power.json", "{\"power\":1}");
    std::atomic<bool> ended = false;
    std::thread writer([&ended] {
        for (int i = 0; !ended; ++i) {
            write_document("power.json", i % 2 == 0 ? "" : "{\"power\":");
            std::this_thread::yield();
            write_document("power.json", "{\"power\":1}");
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 20; ++i) {
        expect_result({"get", "power", "power"}, 0, "1\n");
    }
    ended = true;
    writer.join();
}

}  // namespace
