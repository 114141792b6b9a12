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
#include <csignal>
#include <cstring>
#include <filesystem>
#include <list>
#include <regex>
#include <sstream>
#include <tuple>

#include "store/documents.h"
#include "tests/tool.h"
#include "tools/statusctl/message_types.h"

namespace {

using Words = std::vector<std::string>;

/// What the tool is given, and what it makes of it: its output with status 0, else its complaint.
struct Case {
    Words words;
    int status;
    std::string text;
    std::string input = {};
};

/// Runs all cases at once: those that wait share their waits.
void expect_results(const std::vector<Case>& cases)
{
    std::list<Tool> tools;
    for (const Case& row : cases) {
        tools.emplace_back(row.words, row.input);
    }
    auto tool = tools.begin();
    for (const Case& row : cases) {
        SCOPED_TRACE(::testing::PrintToString(row.words) + row.input.substr(0, 100));
        EXPECT_EQ(tool->wait(), row.status);
        EXPECT_EQ(tool->output(), row.status == 0 ? row.text : "");
        EXPECT_EQ(tool->complaint(), row.status == 0 ? "" : "statusctl: " + row.text + "\n");
        ++tool;
    }
}

/// A row a line, its two cells with a bar between them; what begins with a blank goes on with the
/// line before.
std::vector<std::pair<std::string, std::string>> rows_in(const std::string& text)
{
    std::istringstream lines(std::regex_replace(text, std::regex("\n +"), " "));
    std::vector<std::pair<std::string, std::string>> rows;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t bar = line.find(" | ");
        rows.emplace_back(line.substr(0, bar), line.substr(bar + 3));
    }
    return rows;
}

/// The text with a T for each time in it.
std::string timeless(const std::string& text)
{
    static const std::regex time(R"((\d{4}-\d\d-\d\dT)?\d\d:\d\d:\d\d\.\d{3}Z?)");
    return std::regex_replace(text, time, "T");
}

/// Waits until the output, but for its times, is at least as long as this, and compares them.
void expect_output(const Tool& tool, const std::string& text)
{
    wait_until(text, [&] { return timeless(tool.output()).size() >= text.size(); });
    EXPECT_EQ(timeless(tool.output()), text);
}

std::string utc_now(const char* format)
{
    // std::time lags behind this clock, which the tool reads.
    const auto now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    char text[32];
    std::strftime(text, sizeof text, format, std::gmtime(&now));
    return text;
}

/// Where no service is started, the test can stand in its place.
class Statusctl : public StoppedServiceTest {
protected:
    ~Statusctl() override { close(socket_); }
    void bind_socket()
    {
        socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address = {AF_UNIX, {}};
        std::strcpy(address.sun_path, message_socket_path);
        ASSERT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    void close_socket() { close(std::exchange(socket_, -1)); }

    /// The datagrams that have come, each with a bar behind it, in hexadecimal digits.
    std::string received() const
    {
        std::string text;
        unsigned char bytes[2048];
        ssize_t size = 0;
        while ((size = recv(socket_, bytes, sizeof bytes, MSG_DONTWAIT)) >= 0) {
            for (ssize_t i = 0; i < size; ++i) {
                text += {"0123456789abcdef"[bytes[i] / 16], "0123456789abcdef"[bytes[i] % 16]};
            }
            text += '|';
        }
        return text;
    }

private:
    int socket_ = -1;
};

// Lines of a scenario, and the datagrams in little-endian order that they stand for.
const std::string sent = R"(MSG_TYPE_VIDEO_STATUS port=1 isStable=2 isMute=3 hactive=0x0405
 vactive=0X0607 frameRate=8 colorspace=9 deepcolor=10 aspectRatio=11 interlaced=12 color_range=255
 | 0100000010000000 01020300 05040706 08090a0b0cff0000
video_status port=usb-c colorspace="YCbCr 4:2:2" deepcolor="12 bpc" color_range=FULL
 | 0100000010000000 01000000 00000000 0001020000020000
link_status port=1 isConnect=2 isHpd=3 | 0200000004000000 01020300
link_status PORT=usb-c isconnect=Yes | 0200000004000000 01010000
hdcp_status port=1 isEncrypted=2 status=3 | 0300000004000000 01020300
hdcp_status status="HDCP 2.2" | 0300000004000000 00000200
video_timing port=1 scan_mode=Interlaced pixel_clock=0xFF020304 h_total_pixels=5 h_active_pixels=6
 h_sync_pulse_width=7 h_sync_back_porch=8 h_sync_front_porch=9 h_sync_frequency_hz=65536
 h_sync_polarity=Positive v_total_pixels=10 v_active_pixels=11 v_sync_pulse_width=12
 v_sync_back_porch=13 v_sync_front_porch=14 v_sync_frequency_hz=15 v_sync_polarity=65535
 current_play_port=16 | 0400000028000000 0101040302ff 05000600070008000900 000001000100
 0a000b000c000d000e000f00 ffff 10000000
audio_status port=1 fromPort=2 isStable=3 isMute=4 audioCoding=5 sampleFreq=6 sampleDepth=7
 channels=8 audType=9 | 050000000c000000 010203040506070809000000
audio_status audioCoding=Non-LPCM sampleFreq="48 kHz" | 050000000c000000 000000000102000000000000
ethernet_status | 0600000000000000
typec_info ChargingState=Charging ChargingMode=2 Charging_mV=0x03040506 Charging_mA=4294967295
 Power_Role=11 Data_Role=12 Plug_Orientation=13 Remote_DpMode_Support=14 DpMode_Active=15
 PeerDeviceVID=0x1617 PeerDevicePID=0x1819 PeerDeviceMFT_String="22 bytes \22 \\ \" 22 by"
 PinAssignment=-0x10 RemotePdSupport=17 RemotePdRevision=18
 | 0700000034000000 01020000 06050403 ffffffff 0b0c0d0e0f00 17161918
 3232206279746573205c3232205c20222032322062 79 f0ffffff 11120000
typec_info PinAssignment=-2147483648 | 0700000034000000 0000000000000000000000000000000000000000
 000000000000000000000000000000000000000000000000 00000080 00000000
power_status adapter | 0800000001000000 31
power_v_value -2147483648 | 090000000b000000 2d32313437343833363438
ethernet_control "LAN4 on" | 0a00000004000000 34206f6e
ethernet_control 2	OFF 7 | 0a00000007000000 32206f66662037
charger_status On | 0b00000001000000 31
hdcp_version USB-C "HDCP 1.4" | 0c00000003000000 312031
hdcp_version "USB-C \"HDCP 2.2\"" | 0c00000003000000 312032
uac_control 0 on 1 | 0e00000005000000 3020312031
usb_host_in2 1 | 0f00000001000000 31
usb_host_in1 1 | 1000000001000000 31
hdmi_video_mode port=1 mode=DVI | 1100000004000000 01020000
video_start_working usb-c | 1200000001000000 31
raw 0d0000 00	FfaA | 0d000000ffaa)";

TEST_F(Statusctl, SendsEveryMessageToTheByte)
{
    bind_socket();
    for (const auto& [line, bytes] : rows_in(sent)) {
        const Tool tool({"send", "--file", "-"}, "# a day\n\n " + line + " \r\n");
        EXPECT_EQ(tool.wait(), 0) << tool.complaint();
        EXPECT_EQ(received(), std::regex_replace(bytes, std::regex(" "), "") + "|") << line;
    }
    // From the command line, where a text may look like an option.
    expect_results({{{"send", "power_v_value", "-1"}, 0, ""}});
    expect_results({{{"send", "link_status", "port=1", "isHpd=1"}, 0, ""}});
    EXPECT_EQ(received(), "09000000020000002d31|020000000400000001000100|");
    const std::string raw = "raw 06000000 00000000 ";
    const Tool echo(
        {"send", "--file", "-", "--echo"},
        raw + std::string(58, '0') + " 00 00\nsay \033\nwait 1ms\n" + raw + std::string(90, '0'));
    EXPECT_EQ(echo.wait(), 0);
    EXPECT_EQ(timeless(echo.output()), "T  send  " + raw + std::string(58, '0') + "\n" +
                                           std::string(20, ' ') + "00 00\n== \\u001b\nT  send  " +
                                           raw.substr(0, raw.size() - 1) + "\n" +
                                           std::string(20, ' ') + std::string(90, '0') + "\n");
    expect_results({{{"send", "--file", "-"}, 0, "== A day\n", "say A day\nwait 0s\n"}});
}

const std::string doubtful = R"( | the service knows no type 0
0d | the service knows no type 13
0d000000 00000000 | the service knows no type 13
0200000003000000 01020300 | MSG_TYPE_LINK_STATUS has a payload of 4 bytes
0200000004000000 010203 | MSG_TYPE_LINK_STATUS has a payload of 4 bytes
0300000004000000 00020000
 | isEncrypted 2 is not known; known are 0 no, 1 yes
0700000034000000 0000000000000000000000000000000000000000
 000000000000000000000000000000000000000000000000 f8ffffff 00000000
 | PinAssignment -8 is not known; known are 4 C, 8 D, 16 E
0800000001000000 37 | SOURCE 7 is not known; known are 0 PoE, 1 Adapter
0a00000004000000 30206f6e | PORT 0 is not known; known are 1 LAN1, 2 LAN2, 3 LAN3, 4 LAN4)";

TEST_F(Statusctl, WarnsOfWhatTheServiceWillNotUnderstandAndSendsIt)
{
    bind_socket();
    for (const auto& [bytes, doubt] : rows_in(doubtful)) {
        const Tool tool({"send", "--raw", bytes});
        EXPECT_EQ(tool.wait(), 0);
        EXPECT_EQ(tool.complaint(), "statusctl: warning: " + doubt + "\n") << bytes;
        EXPECT_EQ(received(), std::regex_replace(bytes, std::regex(" "), "") + "|");
    }
    const std::string most = "0600000000000000" + std::string(std::size_t{2} * (1023 - 8), '0');
    expect_results({{{"send", "--raw", most}, 0, ""}});
    expect_results({{{"send", "typec_info"}, 0, ""}});  // no word for 0, which is not given
    const Tool tool({"send", "--raw", most + "00"});
    EXPECT_EQ(tool.wait(), 0);
    EXPECT_EQ(tool.complaint(),
              "statusctl: warning: the service takes only 1023 of these 1024 bytes\n");
}

const std::string refused = R"("\"\\" | there is no type "\; send --list shows the types
link_status colour=1 | MSG_TYPE_LINK_STATUS has no field colour, but port isConnect isHpd
video_status port | port is not of the form FIELD=VALUE
video_status port=1 PORT=1 | port is given twice
video_status hactive=65536 | 65536 does not fit hactive, which takes a number of 16 bits
video_status frameRate= |  does not fit frameRate, which takes a number of 8 bits
typec_info Charging_mV=4294967296
 | 4294967296 does not fit Charging_mV, which takes a number of 32 bits
hdmi_video_mode mode=-1
 | -1 does not fit mode, which takes 1 HDMI, 2 DVI, or a number of 8 bits
typec_info PinAssignment=0x80000000 | 0x80000000 does not fit PinAssignment, which takes 4 C,
 8 D, 16 E, or a signed number of 32 bits
typec_info PinAssignment=-0x80000001 | -0x80000001 does not fit PinAssignment, which takes 4 C,
 8 D, 16 E, or a signed number of 32 bits
typec_info PeerDeviceMFT_String=exactly_23_bytes_longer | exactly_23_bytes_longer does not fit
 PeerDeviceMFT_String, which takes at most 22 bytes of text
ethernet_control 4 | MSG_TYPE_ETHERNET_CONTROL takes PORT STATE [SELECT]
ethernet_control 4 on 1 1 | MSG_TYPE_ETHERNET_CONTROL takes PORT STATE [SELECT]
ethernet_control 4 1 | 1 does not fit STATE, which takes off, on, or nothing else
power_v_value 2147483648
 | 2147483648 does not fit CURRENT, which takes a decimal number of 32 bits
power_v_value 0x1 | 0x1 does not fit CURRENT, which takes a decimal number of 32 bits
ethernet_status 1 | MSG_TYPE_ETHERNET_STATUS takes nothing
power_status "1 | a quote is not closed
raw 00 0 | not two hexadecimal digits a byte, at character 4
raw 0g | not two hexadecimal digits a byte, at character 1
wait 3 | 3 is no time such as 500ms or 2s, up to an hour
wait ms | ms is no time such as 500ms or 2s, up to an hour
wait 3601s | 3601s is no time such as 500ms or 2s, up to an hour)";

const std::string misused = R"(^[ | there is no command \u001b; there are send watch get check
send | there is no message; send --list shows the types
send --lis | there is no type --lis; send --list shows the types
send --list power_status 0 | a message in words does not go with --list
send --list power_statu | there is no type power_statu; send --list shows the types
send --file=- --list | --list excludes --file
send --echo --raw 00 | --echo requires --file
send --show --list | --list excludes --show
send --show --file - | --file excludes --show
send --show | there is no message; send --list shows the types
send --raw | --raw needs a value
send --raw 00 --raw 00 | --raw is given twice
send --file /^[ | can't read /\u001b: No such file or directory
send --file / | can't read /: Is a directory
watch --^[ | The following argument was not expected: --\u001b
watch --count 1x | Could not convert: --count = 1x
watch --for 0.0009 | --for: Value 0.0009 not in range 0.001000 to 1000000.000000
watch --for 1000001 | --for: Value 1000001 not in range 0.001000 to 1000000.000000
get power power x | The following argument was not expected: x
get input a..b | there is no document input; there are inputs usb-host ethernet power outputs
get inputs a..b | a..b is no path such as inputs[0].video.connected
get inputs .a | .a is no path such as inputs[0].video.connected
get inputs a[0 | a[0 is no path such as inputs[0].video.connected
get inputs a. | a. is no path such as inputs[0].video.connected
get inputs a[0]b | a[0]b is no path such as inputs[0].video.connected
check x | The following argument was not expected: x
check --rep | The following argument was not expected: --rep)";

TEST_F(Statusctl, RefusesWhatIsWrongAndSendsNothing)
{
    bind_socket();
    std::vector<Case> cases;
    for (const auto& [line, reason] : rows_in(refused)) {
        cases.push_back(
            {{"send", "--file", "-"}, 2, "line 3: " + reason, "ethernet_status\n\n" + line});
    }
    for (const auto& [line, reason] : rows_in(misused)) {
        std::istringstream words(std::regex_replace(line, std::regex(R"(\^\[)"), "\033"));
        cases.push_back({{std::istream_iterator<std::string>(words), {}}, 2, reason});
    }
    expect_results(cases);
    EXPECT_EQ(received(), "");
}

TEST_F(Statusctl, ListsWhatCanBeSentAndItsCommands)
{
    const Tool list({"send", "--list"});
    EXPECT_EQ(list.wait(), 0);
    // The types and texts are compared with the manual.
    for (const char* line :
         {"MSG_TYPE_ETHERNET_STATUS (6), without payload", "MSG_TYPE_LINK_STATUS (2)",
          "    port                    uint8           0 HDMI, 1 USB-C",
          "    PeerDeviceMFT_String    text, 22 bytes  ",
          "    PinAssignment           int32           4 C, 8 D, 16 E",
          "    STATE                   word            off, on"}) {
        EXPECT_NE(list.output().find("\n" + std::string(line) + "\n"), std::string::npos) << line;
    }
    expect_results(
        {{{"send", "--list", "POWER_STATUS"}, 0, R"(MSG_TYPE_POWER_STATUS (8), a text: SOURCE
    SOURCE                  decimal         0 PoE, 1 Adapter
)"}});
    const Tool version({"--version"});
    EXPECT_EQ(version.wait(), 0);
    EXPECT_EQ(version.output().find("statusctl of status_json_service "), 0);
    const Tool bare({});
    EXPECT_EQ(bare.wait(), 2);
    const Tool help({"-h"});
    EXPECT_EQ(help.wait(), 0);
    EXPECT_EQ(help.output(), bare.output());
    for (const char* command : {"send", "watch", "get", "check"}) {
        const Tool usage({command, command == std::string("get") ? "-h" : "--help"});
        EXPECT_EQ(usage.wait(), 0);
        const std::string usage_line = std::string("\nUsage: statusctl ") + command + " ";
        const std::size_t end = usage.output().find(usage_line);
        EXPECT_NE(help.output().find("  " + usage.output().substr(0, end) + "\n"),
                  std::string::npos);
    }
}

TEST_F(Statusctl, KnowsTheTypesThatTheServiceKnows)
{
    start();
    Words known(64);
    for (const statusctl::MessageKind& kind : statusctl::message_kinds()) {
        known[kind.type] = std::string(std::max<std::size_t>(kind.record_size, 1), '\0');
    }
    for (std::uint32_t type = 0; type < known.size(); ++type) {
        const Words lines = logged_by([&] { send_text(type, known[type]); });
        EXPECT_EQ(std::any_of(lines.begin(), lines.end(),
                              [](const std::string& line) { return line.find("Unknown") == 0; }),
                  known[type].empty())
            << "type " << type;
    }
}

const std::string power_seeded =
    R"({"document":"power","state":{"power":{"measured_power_current_a":0,)"
    R"("measured_power_voltage_v":11900,"power_source":"PoE"}},"time":"T"})"
    "\n";
const std::string outputs_seeded =
    R"({"document":"outputs","state":{"outputs":[{"audio":{"channel":2,"connected":true,)"
    R"("format":"PCM","sample_frequency":"48 kHz","signal_present":true},"index":1,)"
    R"("port_type":"UAC"}]},"time":"T"})"
    "\n";
const std::string to_adapter =
    R"({"document":"power","new":24000,"old":11900,"path":"power.measured_power_voltage_v","time":"T"}
{"document":"power","new":"Adapter","old":"PoE","path":"power.power_source","time":"T"}
)";
const std::string to_silence =
    R"({"document":"outputs","new":false,"old":true,"path":"outputs[0].audio.connected","time":"T"}
{"document":"outputs","new":false,"old":true,"path":"outputs[0].audio.signal_present","time":"T"}
)";

TEST_F(Statusctl, WatchShowsEachChange)
{
    start();
    const std::string begin = utc_now("%Y-%m-%dT%H:%M:%S");
    write_document("outputs.json", "");
    const Tool watch({"watch", "--json", "outputs", "power.json"});
    expect_output(watch, power_seeded);
    send_line("power_status 1");  // before it has read all, and after it has subscribed
    settle();
    write_document("outputs.json", std::string(outputs_default_text));
    const auto wait_timeless = [&watch](const std::string& lines) {
        wait_until(lines,
                   [&] { return timeless(watch.output()).find(lines) != std::string::npos; });
    };
    wait_timeless(outputs_seeded);
    wait_timeless(to_adapter);
    const std::string time = watch.output().substr(watch.output().find(R"("time":")") + 8, 24);
    EXPECT_LE(begin, time);
    EXPECT_LE(time, utc_now("%Y-%m-%dT%H:%M:%S.999Z"));
    send_line("uac_control 0 1 0");
    wait_timeless(to_silence);
    stop();
    start();  // writes power.json anew and announces nothing
    watch.wait_output(R"("new":"PoE","old":"Adapter","path":"power.power_source")");
    write_document("power.json", R"({"power":{"power_source":"PoE"},"new":1})");
    watch.wait_output(R"({"document":"power","new":1,"path":"new",)");
    watch.wait_output(R"({"document":"power","old":0,"path":"power.measured_power_current_a",)");
    write_document("power.json", "{\"power\":\n{");
    watch.wait_output(R"("document":"power","problem":"Line 2, Column 2 Missing '}')");
    std::filesystem::remove_all(status_directory);
    watch.wait_output(R"("document":"power","problem":"No such file or directory")");
    EXPECT_EQ(watch.end(), 0);
    EXPECT_EQ(watch.complaint(), "");
}

TEST_F(Statusctl, WatchEndsWhereItCanNotWatch)
{
#ifdef SANITIZED
    GTEST_SKIP() << "the sanitizers' runtimes need descriptors of their own";
#endif
    start();
    const Tool watch({"watch"}, "", [] {
        closefrom(3);
        const rlimit descriptors = {4, 4};  // the fourth goes to the end's signals
        setrlimit(RLIMIT_NOFILE, &descriptors);
    });
    EXPECT_EQ(watch.wait(), 1);
    EXPECT_EQ(watch.complaint(), "statusctl: can't watch the documents: Too many open files\n");
}

TEST_F(Statusctl, SendShowsWhatBecomesOfAMessage)
{
    start();
    int value = 0;
    wait_until("a change within a second", [&value] {
        const std::string current = std::to_string(++value);
        const Tool tool({"send", "--show", "power_v_value", current});
        EXPECT_EQ(tool.wait(), 0);
        return tool.output().find(" -> " + current + "\n") != std::string::npos &&
               tool.output().find("nothing changed") == std::string::npos;
    });
    const std::string nothing = "nothing changed within a second: ";
    const std::string down =
        ".video.connected is false, and while a link is down, reports about its input are "
        "dropped\n";
    const std::string unknown =
        nothing + "it is what the documents say already, or the service's log has the reason\n";
    send_line("link_status port=1");
    send_line("video_status isStable=1");  // taken, as no link is reported yet
    settle();
    write_document("outputs.json", "[");  // which is told, and is no change
    const std::pair<Words, std::string> rows[] = {
        {{"send", "--show", "video_start_working", "1"}, nothing + "inputs[1]" + down},
        {{"send", "--show", "video_status", "port=1"}, nothing + "inputs[1]" + down},
        {{"send", "--show", "video_status", "isStable=1"}, unknown},
        {{"send", "--show", "--raw", "0800000000000000"}, unknown}};
    std::list<Tool> tools;
    for (const auto& row : rows) {
        tools.emplace_back(row.first);
    }
    auto tool = tools.begin();
    for (const auto& row : rows) {
        EXPECT_EQ(tool->wait(), 0);
        const std::string output = tool++->output();
        EXPECT_NE(output.find("outputs   can't be read"), std::string::npos);
        EXPECT_EQ(output.substr(output.find('\n') + 1), row.second);
    }
    std::filesystem::remove(message_socket_path);
    const Tool unsent({"send", "--show", "ethernet_status"});
    EXPECT_EQ(unsent.wait(), 1);
    EXPECT_EQ(unsent.output().find("nothing"), std::string::npos);
}

/// A line of `watch` about power.json without its time.
std::string line_of(std::string path, const std::string& rest)
{
    path.resize(std::max<std::size_t>(path.size(), 49), ' ');
    return "T  power     " + path + "  " + rest + "\n";
}

TEST_F(Statusctl, WatchIsReadableAndEndsByItself)
{
    start();
    const Tool watch({"watch", "power", "--count", "1"}, "", [] { setenv("TZ", "XYZ-12", 1); });
    std::string text = line_of("power.measured_power_current_a", "0") +
                       line_of("power.measured_power_voltage_v", "11900") +
                       line_of("power.power_source", "\"PoE\"");
    expect_output(watch, text);
    const int ahead = std::stoi(watch.output()) - std::stoi(utc_now("%H"));
    EXPECT_TRUE(ahead == 12 || ahead == -12 || ahead == 11 || ahead == -13) << "of the local zone";
    send_line("power_v_value 7");
    EXPECT_EQ(watch.wait(), 0);
    text += line_of("power.measured_power_current_a", "0 -> 7");
    EXPECT_EQ(timeless(watch.output()), text);

    const std::string strange = std::string(50, 'x');
    write_document("power.json",
                   R"({"a":"b\" -> \"\\","b":0.1,"power":{"\u001b)" + strange + R"(":1}})");
    const Tool next({"watch", "power", "--count", "4"});
    text = line_of("a", R"("b\" -> \"\\")") + line_of("b", "0.1") +
           line_of("power.\\u001b" + strange, "1");
    expect_output(next, text);
    write_document("power.json", "{\"\x1B");
    expect_output(next, text +=
                        "T  power     can't be read: Line 1, Column 2 Missing '}' or "
                        "object member name\n");
    write_document("power.json", "{\"\x1B");  // what stays as it is isn't told again
    write_document("power.json", R"({"a":[],"c":{}})");
    expect_output(next, text += line_of("a", R"("b\" -> \"\\" -> [])") +
                                line_of("b", "0.1 -> (none)") + line_of("c", "(none) -> {}") +
                                line_of("power.\\u001b" + strange, "1 -> (none)"));
    std::filesystem::remove(power_document.path);
    expect_output(next, text += "T  power     can't be read: No such file or directory\n");
    write_document("power.json", R"({"a":null,"c":{}})");
    EXPECT_EQ(next.wait(), 0);
    expect_output(next, text + line_of("a", "[] -> null"));
}

/// What `watch power` writes to a terminal of this kind about a change.
std::string shown_on_terminal(const char* term, const char* no_color, const Action& change)
{
    int terminal = -1;
    const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (pid == 0) {
        const std::string tool = Tool::path();
        term != nullptr ? setenv("TERM", term, 1) : unsetenv("TERM");
        no_color != nullptr ? setenv("NO_COLOR", no_color, 1) : unsetenv("NO_COLOR");
        execl(tool.c_str(), tool.c_str(), "watch", "power", "--count", "1", "--for", "60", nullptr);
        _exit(127);
    }
    std::string text;
    for (char letter = 0; read(terminal, &letter, 1) == 1;) {
        text += letter;
        if (letter == '\n' && text.find("power_source") != std::string::npos) {
            change();
            text.clear();
        }
    }
    waitpid(pid, nullptr, 0);
    close(terminal);
    return timeless(text);
}

TEST_F(Statusctl, ColoursAreForTerminalsThatHaveThem)
{
    start();
    const std::tuple<const char*, const char*, bool> rows[] = {{"xterm", nullptr, true},
                                                               {"xterm", "", true},
                                                               {"xterm", "1", false},
                                                               {"dumb", nullptr, false},
                                                               {nullptr, nullptr, false}};
    int value = 0;
    for (const auto& [term, no_color, has_colours] : rows) {
        std::string line = std::to_string(value) + " -> ";
        const std::string after = std::to_string(++value);
        line = line_of("power.measured_power_current_a", line.append(after));
        if (has_colours) {
            line = std::regex_replace(line, std::regex("^T  power   "),
                                      "\033[2mT\033[0m  \033[36mpower   \033[0m");
            line = std::regex_replace(line, std::regex("(\\d+) -> (\\d+)"),
                                      "\033[31m$1\033[0m -> \033[32m$2\033[0m");
        }
        EXPECT_EQ(shown_on_terminal(term, no_color, [&] { send_line("power_v_value " + after); }),
                  line.substr(0, line.size() - 1) + "\r\n");
    }
}

TEST_F(Statusctl, WatchEndsWhenItIsTold)
{
    start();
    const auto begin = std::chrono::steady_clock::now();
    const Tool limited({"watch", "--json", "--for", "0.1"});
    const Tool silent({"watch", "--changes-only", "--for", "0.1"});
    const Tool interrupted({"watch", "power"});
    interrupted.wait_output("PoE");
    kill(interrupted.pid, SIGINT);
    EXPECT_EQ(interrupted.wait(), 0);
    EXPECT_EQ(limited.wait(), 0);
    EXPECT_EQ(silent.wait(), 0);
    EXPECT_EQ(silent.output(), "");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(100));
    const std::string states = limited.output();
    EXPECT_EQ(std::count(states.begin(), states.end(), '\n'), 5) << states;
}

TEST_F(Statusctl, GetPrintsDocumentsAndMembers)
{
    start();
    const std::string no_member = "/var/run/status/inputs.json: no member ";
    expect_results({{{"get", "power", "power.power_source"}, 0, "PoE\n"},
                    {{"get", "--json", "power.json", "power.power_source"}, 0, "\"PoE\"\n"},
                    {{"get", "power"}, 0, R"({
    "power" : 
    {
        "measured_power_current_a" : 0,
        "measured_power_voltage_v" : 11900,
        "power_source" : "PoE"
    }
}
)"},
                    {{"get", "inputs", "inputs.0.video.connected"}, 0, "false\n"},
                    {{"get", "inputs", "inputs[1].port_type"}, 0, "USB-C\n"},
                    {{"get", "inputs", "inputs[usb-c].port_type"}, 0, "USB-C\n"},
                    {{"get", "ethernet", "ethernet.LAN3.port"}, 0, "LAN3\n"},
                    {{"get", "inputs", "inputs[DVI]"}, 1, no_member + "inputs[DVI]"},
                    {{"get", "inputs", "inputs[3]"}, 1, no_member + "inputs[3]"},
                    {{"get", "inputs", "inputs[0x]"}, 1, no_member + "inputs[0x]"},
                    {{"get", "inputs", "inputs[0].index.x"}, 1, no_member + "inputs[0].index.x"},
                    {{"get", "inputs", "input\033"}, 1, no_member + "input\\u001b"}});
    const Tool all({"get"});
    EXPECT_EQ(all.wait(), 0);
    Json::Value documents;
    for (const StatusDocument& document : status_documents) {
        documents[std::string(document.name)] = parsed(std::string(*document.default_text));
    }
    EXPECT_EQ(parsed(all.output()), documents);
}

TEST_F(Statusctl, TextOfOthersCanNotActOnATerminal)
{
    start();
    // The ends of what is hidden and their neighbours, the ends of what UTF-8 can say, and what is
    // none.
    write_document(
        "power.json",
        "[\"\\u0000\1\x1F ~\x7F"
        u8"\u009F\u00A0\u00AC\u00AD\u00AE\u061B\u061C\u061D\u180D\u180E\u180F\u200A\u200B\u200F"
        u8"\u2010"
        u8"\u2027\u2028\u202E\u202F\u205F\u2060\u206F\u2070\uFEFE\uFEFF\uFF00\uFFF8\uFFF9\uFFFB"
        u8"\uFFFC"
        u8"\U000DFFFF\U000E0000\U000E007F\U000E0080\u07FF\u0800\uD7FF\uE000\U00010000\U0010FFFF"
        "\xFF\xC0\xAF\xE0\x9F\xBF\xED\xA0\x80\xF0\x8F\xBF\xBF\xF4\x90\x80\x80\x80\xC3\", // a "
        "comment\n"
        "\"\x7F\xC3\xA9\"]");
    expect_results(
        {{{"get", "power", "[0]"},
          0,
          R"(\u0000\u0001\u001f ~\u007f\u009f)"
          u8"\u00A0\u00AC\\u00ad\u00AE\u061B\\u061c\u061D\u180D\\u180e\u180F\u200A\\u200b\\u200f"
          u8"\u2010"
          u8"\u2027\\u2028\\u202e\u202F\u205F\\u2060\\u206f\u2070\uFEFE\\ufeff\uFF00\uFFF8\\ufff9"
          u8"\\ufffb\uFFFC\U000DFFFF\\U000e0000\\U000e007f\U000E0080\u07FF\u0800\uD7FF\uE000"
          u8"\U00010000\U0010FFFF"
          R"(\xff\xc0\xaf\xe0\x9f\xbf\xed\xa0\x80\xf0\x8f\xbf\xbf\xf4\x90\x80\x80\x80\xc3)"
          "\n"},
         {{"get", "power", "1", "--json"}, 0, "\"\\u007f\\u00e9\"\n"},
         {{"get", "power", "[x]"}, 1, "/var/run/status/power.json: no member [x]"}});
}

TEST_F(Statusctl, WaitsForWhatPassesAndTellsWhatDoesNot)
{
    start();
    stop();
    write_document("power.json", "{\"power\":1}");
    write_document("inputs.json", " \n");
    write_document("usb-host.json", "{}{}");
    write_document("ethernet.json", std::string(100000, '['));
    const int locked = open(outputs_document.path, O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(locked, LOCK_EX), 0);
    std::filesystem::remove(message_socket_path);
    const std::string failure = "can't send to /tmp/json_app.sock: ";
    const std::string not_there = failure + "the service is not there";
    expect_results({{{"send", "ethernet_status"}, 1, not_there}});
    bind_socket();
    std::string flood;
    for (int i = 0; i < 5000; ++i) {
        flood += "ethernet_status\n";
    }
    const std::string path = "/var/run/status/";
    expect_results({
        {{"send", "--file", "-"}, 1, failure + "the service's receive queue stays full", flood},
        {{"send", "--file", "-"},
         1,
         failure + "Message too long",
         "raw " + std::string(1 << 20, '0')},
        {{"get", "inputs"}, 1, path + "inputs.json: empty"},
        {{"get", "usb-host"},
         1,
         path + "usb-host.json: Line 1, Column 3 Extra non-whitespace after JSON value."},
        {{"get", "ethernet"}, 1, path + "ethernet.json: nested too deeply"},
        {{"get", "outputs"}, 1, path + "outputs.json: locked by another process"},
    });
    received();
    const Tool slowed({"send", "--file", "-"}, flood.substr(0, 30 * sizeof "ethernet_status"));
    std::string datagrams;
    wait_until("what waits",
               [&] { return (datagrams += received()).size() >= std::size_t{30} * 17; });
    EXPECT_EQ(slowed.wait(), 0) << slowed.complaint();
    close_socket();
    expect_results({{{"send", "ethernet_status"}, 1, not_there}});  // the file is left

    wait_until("documents that become good within the tool's patience", [locked] {
        EXPECT_EQ(flock(locked, LOCK_EX), 0);
        write_document("inputs.json", " \n");
        write_document("ethernet.json", "[");
        std::list<Tool> patient;
        for (const char* document : {"inputs", "ethernet", "outputs"}) {
            patient.emplace_back(Words{"get", document, "[0]"});
        }
        usleep(100000);  // or they come later, and have less to wait for
        for (const char* name : {"inputs.json", "ethernet.json", "outputs.json"}) {
            write_document(name, "[7]");
        }
        flock(locked, LOCK_UN);
        const auto is_good = [](const Tool& tool) {
            return tool.wait() == 0 && tool.output() == "7\n";
        };
        return std::count_if(patient.begin(), patient.end(), is_good) == 3;
    });
    close(locked);
    std::filesystem::remove(power_document.path);
    expect_results({{{"get", "power"}, 1, path + "power.json: No such file or directory"}});
    EXPECT_EQ(Tool({"get"}).wait(), 1);
}

}  // namespace
