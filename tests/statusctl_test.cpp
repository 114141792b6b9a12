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

#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <thread>
#include <tuple>
#include <utility>

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

// Lines of a scenario, and the datagrams in little-endian order that they stand for.
// clang-format off
constexpr std::pair<const char*, const char*> messages[] = {
    {"MSG_TYPE_VIDEO_STATUS port=1 isStable=2 isMute=3 hactive=0x0405 vactive=0x0607 frameRate=8 "
     "colorspace=9 deepcolor=10 aspectRatio=11 interlaced=12 color_range=255",
     "0100000010000000" "01020300" "05040706" "08090a0b0cff0000"},
    {R"(video_status port=usb-c colorspace="YCbCr 4:2:2" deepcolor="12 bpc" color_range=FULL)",
     "0100000010000000" "01000000" "00000000" "0001020000020000"},
    {"link_status port=1 isConnect=2 isHpd=3", "0200000004000000" "01020300"},
    {"hdcp_status port=1 isEncrypted=2 status=3", "0300000004000000" "01020300"},
    {R"(hdcp_status status="HDCP 2.2")", "0300000004000000" "00000200"},
    {"video_timing port=1 scan_mode=Interlaced pixel_clock=0xFF020304 h_total_pixels=5 "
     "h_active_pixels=6 h_sync_pulse_width=7 h_sync_back_porch=8 h_sync_front_porch=9 "
     "h_sync_frequency_hz=65536 h_sync_polarity=Positive v_total_pixels=10 v_active_pixels=11 "
     "v_sync_pulse_width=12 v_sync_back_porch=13 v_sync_front_porch=14 v_sync_frequency_hz=15 "
     "v_sync_polarity=65535 current_play_port=16",
     "0400000028000000" "0101040302ff" "05000600070008000900" "000001000100"
     "0a000b000c000d000e000f00" "ffff" "10000000"},
    {"audio_status port=1 fromPort=2 isStable=3 isMute=4 audioCoding=5 sampleFreq=6 sampleDepth=7 "
     "channels=8 audType=9", "050000000c000000" "010203040506070809000000"},
    {R"(audio_status audioCoding=Non-LPCM sampleFreq="48 kHz")",
     "050000000c000000" "000000000102000000000000"},
    {"ethernet_status", "0600000000000000"},
    {"typec_info ChargingState=Charging ChargingMode=2 Charging_mV=0x03040506 "
     "Charging_mA=0x0708090A Power_Role=11 Data_Role=12 Plug_Orientation=13 "
     "Remote_DpMode_Support=14 DpMode_Active=15 PeerDeviceVID=0x1617 PeerDevicePID=0x1819 "
     "PeerDeviceMFT_String=\"22 bytes 22 bytes 22 b\" PinAssignment=-16 RemotePdSupport=17 "
     "RemotePdRevision=18",
     "0700000034000000" "01020000" "06050403" "0a090807" "0b0c0d0e0f00" "17161918"
     "323220627974657320323220627974657320323220" "62" "f0ffffff" "11120000"},
    {"typec_info PinAssignment=E", "0700000034000000" "0000000000000000000000000000000000000000"
     "000000000000000000000000000000000000000000000000" "10000000" "00000000"},
    {"power_status adapter", "080000000100000031"}, {"power_v_value -1", "09000000020000002d31"},
    {"ethernet_control \"4 on\"", "0a00000004000000" "34206f6e"},
    {"ethernet_control 2 OFF 7", "0a00000007000000" "32206f66662037"},
    {"charger_status 1", "0b00000001000000" "31"},
    {R"(hdcp_version USB-C "HDCP 1.4")", "0c00000003000000" "312031"},
    {R"(hdcp_version "USB-C \"HDCP 2.2\"")", "0c00000003000000" "312032"},
    {"uac_control 0 1 1", "0e00000005000000" "3020312031"},
    {"usb_host_in2 1", "0f00000001000000" "31"}, {"usb_host_in1 1", "1000000001000000" "31"},
    {"hdmi_video_mode port=1 mode=DVI", "1100000004000000" "01020000"},
    {"video_start_working usb-c", "1200000001000000" "31"},
    {"raw 0d0000 00 FFfF", "0d000000ffff"},
};

constexpr std::pair<const char*, const char*> wrong_lines[] = {
    {R"("\"\\")", R"(there is no type "\; send --list shows the types)"},
    {"video", "there is no type video; send --list shows the types"},
    {"video_status colour=1", "MSG_TYPE_VIDEO_STATUS has no field colour"},
    {"video_status port", "port is not of the form FIELD=VALUE"},
    {"video_status port=1 port=1", "port is given twice"},
    {"video_status hactive=65536", "65536 does not fit hactive, which takes a number of 16 bits"},
    {"hdmi_video_mode mode=-1",
     R"(-1 does not fit mode, which takes "HDMI", "DVI", or a number of 8 bits)"},
    {"typec_info PinAssignment=0x80000000", "0x80000000 does not fit PinAssignment, which takes "
     "\"C\", \"D\", \"E\", or a signed number of 32 bits"},
    {"typec_info PeerDeviceMFT_String=exactly_23_bytes_longer", "exactly_23_bytes_longer does not "
     "fit PeerDeviceMFT_String, which takes at most 22 bytes of text"},
    {"power_status 0 1", "MSG_TYPE_POWER_STATUS takes SOURCE"},
    {"ethernet_control 4", "MSG_TYPE_ETHERNET_CONTROL takes PORT STATE [SELECT]"},
    {"ethernet_control 4 1", "1 does not fit STATE, which takes \"off\", \"on\", or nothing else"},
    {"power_status 0x1",
     R"(0x1 does not fit SOURCE, which takes "PoE", "Adapter", or a decimal number of 32 bits)"},
    {"ethernet_status 1", "MSG_TYPE_ETHERNET_STATUS takes nothing"},
    {"power_status \"1", "a quote is not closed"},
    {"raw 0", "not two hexadecimal digits a byte, at character 1"},
    {"wait 3", "3 is no time such as 500ms or 2s, up to an hour"},
};
// clang-format on

TEST_F(Statusctl, EveryMessageArrivesToTheByte)
{
    bind_socket();
    for (const auto& [line, datagram] : messages) {
        expect_result({"send", "--file", "-"}, 0, "", "# a day\n\n " + std::string(line) + "\r\n");
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
    for (const auto& [line, reason] : wrong_lines) {
        expect_result({"send", "--file", "-"}, 2, std::string("line 2: ") + reason,
                      std::string("ethernet_status\n") + line);
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

    // The service's own user is believed as well.
    ASSERT_EQ(chown(status_directory, 65534, 65534), 0);
    write_document("power.json", "{\"power\":\n{");
    send_event("e_power_json_update", 65534);
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
    // NOLINTNEXTLINE(misc-misleading-bidirectional): to see it escaped
    write_document("power.json",
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
