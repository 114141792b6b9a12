/// statusctl, driven as people and scripts drive it.
#include <pty.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <list>
#include <regex>
#include <sstream>

#include "store/documents.h"
#include "tests/tool.h"
#include "tools/statusctl/compose_datagram.h"
#include "tools/statusctl/message_types.h"

namespace {

/// The text with a T for each time in it.
std::string timeless(const std::string& text)
{
    static const std::regex time(R"((\d{4}-\d\d-\d\dT)?\d\d:\d\d:\d\d\.\d{3}Z?)");
    return std::regex_replace(text, time, "T");
}

/// What the tool is given, and what it makes of it: its output, and then its complaints.
struct Case {
    Lines words;
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
        EXPECT_EQ(timeless(tool->output()) + tool->complaint(), row.text);
        // A line of complaint names the tool, and no other line does.
        EXPECT_EQ(tool->output().find("statusctl: "), std::string::npos);
        EXPECT_TRUE(std::regex_match(tool->complaint(), std::regex("(statusctl: .*\n)*")));
        ++tool;
    }
}

/// A row a line, its cells with bars between them; what begins with a blank goes on with the line
/// before.
std::vector<Lines> rows_in(const std::string& text)
{
    std::istringstream lines(std::regex_replace(text, std::regex("\n +"), " "));
    std::vector<Lines> rows;
    for (std::string line; std::getline(lines, line);) {
        static const std::regex bar(" \\| ");
        rows.emplace_back(std::sregex_token_iterator(line.begin(), line.end(), bar, -1),
                          std::sregex_token_iterator());
    }
    return rows;
}

/// Where no service is started, the test can stand in its place.
class Statusctl : public StoppedServiceTest {
protected:
    ~Statusctl() override { close(socket_); }
    void bind_socket() const
    {
        sockaddr_un address = {AF_UNIX, {}};
        std::strcpy(address.sun_path, message_socket_path);
        ASSERT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }

    /// The datagrams that have come.
    Lines received() const
    {
        Lines datagrams;
        char bytes[2048];
        for (ssize_t size; (size = recv(socket_, bytes, sizeof bytes, MSG_DONTWAIT)) >= 0;) {
            datagrams.emplace_back(bytes, size);
        }
        return datagrams;
    }

private:
    const int socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

// Lines of a scenario, the datagrams in little-endian order that they stand for, and what the tool
// doubts.
const std::string sent = R"(ethernet_status | 0600000000000000
hdmi_video_mode PORT=usb-c | 1100000004000000 01000000
typec_info ChargingState=Charging ChargingMode=2 Charging_mV=0x03040506 Charging_mA=4294967295
 Power_Role=11 Data_Role=12 Plug_Orientation=13 Remote_DpMode_Support=1 DpMode_Active=15
 PeerDeviceVID=0X1617 PeerDevicePID=0x1819 PeerDeviceMFT_String="22 bytes \22 \\ \" 22 by"
 PinAssignment=-0x80000000 RemotePdSupport=0 RemotePdRevision=18
 | 0700000034000000 01020000 06050403 ffffffff 0b0c0d010f00 17161918
 3232206279746573205c3232205c20222032322062 79 00000080 00120000
 | DpMode_Active 15 is not known; known are 0 no, 1 yes
 | PinAssignment -2147483648 is not known; known are 4 C, 8 D, 16 E
power_status 7 | 0800000001000000 37 | SOURCE 7 is not known; known are 0 PoE, 1 Adapter
charger_status Off | 0b00000001000000 30
power_v_value -2147483648 | 090000000b000000 2d32313437343833363438
ethernet_control 0	OFF 7 | 0a00000007000000 30206f66662037
 | PORT 0 is not known; known are 1 LAN1, 2 LAN2, 3 LAN3, 4 LAN4
hdcp_version "hdmi \"HDCP 2.2\"" | 0c00000003000000 302032
raw 0d0000 00	FfaA | 0d000000ffaa | the service knows no type 13
raw |  | the service knows no type 0
raw 0200000003000000 01020300 | 0200000003000000 01020300
 | MSG_TYPE_LINK_STATUS has a payload of 4 bytes
raw 0200000004000000 010203 | 0200000004000000 010203
 | MSG_TYPE_LINK_STATUS has a payload of 4 bytes)";

TEST_F(Statusctl, SendsEveryMessageToTheByteAndTellsItsDoubts)
{
    bind_socket();
    std::vector<Lines> rows = rows_in(sent);
    const std::string most = "0600000000000000" + std::string(std::size_t{2} * (1023 - 8), '0');
    rows.push_back({"raw " + most, most});
    rows.push_back(
        {"raw " + most + "00", most + "00", "the service takes only 1023 of these 1024 bytes"});
    for (const Lines& cells : rows) {
        std::string doubts;
        for (std::size_t i = 2; i < cells.size(); ++i) {
            doubts += "statusctl: warning: " + cells[i] + "\n";
        }
        expect_results({{{"send", "--file", "-"}, 0, doubts, "# a day\n\n " + cells[0] + " \r\n"}});
        EXPECT_EQ(received(), Lines{statusctl::bytes_from_hex(cells[1])}) << cells[0];
    }
    const std::string raw = "raw 06000000 00000000 " + std::string(58, '0');
    const std::string rest(90, '0');
    const std::string indented = "\n" + std::string(20, ' ');
    const auto begin = std::chrono::steady_clock::now();
    expect_results({{{"send", "--file", "-", "--echo"},
                     0,
                     "== A \\u001b\nT  send  " + raw + indented + "00" + indented + rest + "\n",
                     "say A \033\r\n" + raw + " 00 " + rest + "\nwait 30ms\nwait 0s"}});
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
}

// The status and the command line, with what its standard input ends in behind <; and the answer,
// if there is one.
const std::string answers = R"(0 get power power.power_source | PoE
0 get power.json power.power_source --json | "PoE"
0 get inputs inputs.0.video.connected | false
0 get inputs inputs[usb-c].port_type | USB-C
0 get ethernet ethernet.LAN3.port | LAN3
0 send --list ETHERNET_STATUS | MSG_TYPE_ETHERNET_STATUS (6), without payload
0 watch --changes-only --for 0.001
1 get inputs inputs[3] | /var/run/status/inputs.json: no member inputs[3]
1 get inputs inputs[0].index.x | /var/run/status/inputs.json: no member inputs[0].index.x
1 get inputs input^[.x | /var/run/status/inputs.json: no member input\u001b.x
2 get power power x | The following argument was not expected: x
2 get input a..b | there is no document input; there are inputs usb-host ethernet power outputs
2 get inputs a..b | a..b is no path such as inputs[0].video.connected
2 get inputs .a | .a is no path such as inputs[0].video.connected
2 get inputs a[0 | a[0 is no path such as inputs[0].video.connected
2 get inputs a[0]b | a[0]b is no path such as inputs[0].video.connected
2 check x | The following argument was not expected: x
2 check --rep | The following argument was not expected: --rep
2 watch --^[ | The following argument was not expected: --\u001b
2 watch --count 1x | Could not convert: --count = 1x
2 watch --for 0.0009 | --for: Value 0.0009 not in range 0.001000 to 1000000.000000
2 watch --for 1000001 | --for: Value 1000001 not in range 0.001000 to 1000000.000000
2 ^[ | there is no command \u001b; there are send watch get check
2 send | there is no message; send --list shows the types
2 send --lis | there is no type --lis; send --list shows the types
2 send -- --list | there is no type --list; send --list shows the types
2 send --list power_status 0 | a message in words does not go with --list
2 send --file=- --list | --list excludes --file
2 send --echo --raw 00 | --echo requires --file
2 send --show --list | --list excludes --show
2 send --show --file - | --file excludes --show
2 send --raw | --raw needs a value
2 send --raw= | --raw needs a value
2 send --raw 00 --raw 00 | --raw is given twice
2 send --raw "00 0" | not two hexadecimal digits a byte, at character 4
2 send --raw 0g | not two hexadecimal digits a byte, at character 1
2 send --file /^[ | can't read /\u001b: No such file or directory
2 send --file / | can't read /: Is a directory
2 send --file - < wait 3 | line 3: 3 is no time such as 500ms or 2s, up to an hour
2 send --file - < wait ms | line 3: ms is no time such as 500ms or 2s, up to an hour
2 send --file - < wait 3601s | line 3: 3601s is no time such as 500ms or 2s, up to an hour
2 send --file - < power_status "1 | line 3: a quote is not closed
2 send link_status colour=1 | MSG_TYPE_LINK_STATUS has no field colour, but port isConnect isHpd
2 send video_status port | port is not of the form FIELD=VALUE
2 send video_status port=1 PORT=1 | port is given twice
2 send video_status hactive=65536 | 65536 does not fit hactive, which takes a number of 16 bits
2 send video_status frameRate= |  does not fit frameRate, which takes a number of 8 bits
2 send video_status frameRate=-1 | -1 does not fit frameRate, which takes a number of 8 bits
2 send typec_info PinAssignment=0x80000000 | 0x80000000 does not fit PinAssignment, which takes
 4 C, 8 D, 16 E, or a signed number of 32 bits
2 send typec_info PinAssignment=-0x80000001 | -0x80000001 does not fit PinAssignment, which takes
 4 C, 8 D, 16 E, or a signed number of 32 bits
2 send typec_info PeerDeviceMFT_String=exactly_23_bytes_longer | exactly_23_bytes_longer does not
 fit PeerDeviceMFT_String, which takes at most 22 bytes of text
2 send ethernet_control 4 | MSG_TYPE_ETHERNET_CONTROL takes PORT STATE [SELECT]
2 send ethernet_control 4 on 1 1 | MSG_TYPE_ETHERNET_CONTROL takes PORT STATE [SELECT]
2 send ethernet_control 4 1 | 1 does not fit STATE, which takes off, on, or nothing else
2 send power_v_value 2147483648
 | 2147483648 does not fit CURRENT, which takes a decimal number of 32 bits
2 send power_v_value 0x1 | 0x1 does not fit CURRENT, which takes a decimal number of 32 bits
2 send ethernet_status 1 | MSG_TYPE_ETHERNET_STATUS takes nothing)";

TEST_F(Statusctl, AnswersOrRefusesAndThenSendsNothing)
{
    start();
    std::vector<Case> cases;
    for (const Lines& cells : rows_in(answers)) {
        const int status = std::stoi(cells[0]);
        const std::string line = std::regex_replace(cells[0], std::regex(R"(\^\[)"), "\033");
        const std::size_t end = std::min(line.find(" < "), line.size());
        const std::string answer = (status == 0 ? "" : "statusctl: ") + cells.back() + "\n";
        cases.push_back({statusctl::split_words(line.substr(2, end - 2)), status,
                         cells.size() == 1 ? "" : answer,
                         "ethernet_status\n\n" + line.substr(std::min(end + 3, line.size()))});
    }
    EXPECT_EQ(logged_by([&cases] { expect_results(cases); }), Lines());
}

const std::string commands =
    R"(Send to status_json_service, and read, watch and check what it publishes
Usage: statusctl COMMAND [OPTION...] [WORD...]

  send    Send messages to the service, or list what can be sent
  watch   Show the documents' state, and then what changes
  get     Print a document, or one member of it
  check   Look over the documents and the service; a line a finding

The documents are inputs usb-host ethernet power outputs.
statusctl COMMAND --help shows what a command takes, --version the version.
)";

TEST_F(Statusctl, ShowsItsCommandsAndTheMessagesThatTheServiceKnows)
{
    // Options, types and words are compared with the manuals.
    expect_results({
        {{"-h"}, 0, commands},
        {{}, 2, commands},
        {{"check", "-h"}, 0, R"(Look over the documents and the service; a line a finding
Usage: statusctl check [--repair]
  --repair   Before a start: remove documents that do not parse, and nothing else
)"},
    });
    const Tool list({"send", "--list"});
    EXPECT_EQ(list.wait(), 0);
    for (const char* lines : {"    STATE                   word            off, on\n",
                              "MSG_TYPE_POWER_STATUS (8), a text: SOURCE\n"
                              "    SOURCE                  decimal         0 PoE, 1 Adapter\n",
                              "    PeerDevicePID           uint16          \n"
                              "    PeerDeviceMFT_String    text, 22 bytes  \n"
                              "    PinAssignment           int32           4 C, 8 D, 16 E\n"}) {
        EXPECT_NE(list.output().find(lines), std::string::npos) << lines;
    }
    const Tool version({"--version"});
    EXPECT_EQ(version.wait(), 0);
    EXPECT_EQ(version.output().find("statusctl of status_json_service "), 0);

    start();
    const Lines lines = logged_by([] {
        for (const statusctl::MessageKind& kind : statusctl::message_kinds()) {
            send_text(kind.type, std::string(std::max<std::size_t>(kind.record_size, 1), '\0'));
        }
    });
    EXPECT_EQ(::testing::PrintToString(lines).find("Unknown"), std::string::npos);
}

// What `watch` shows of power.json to people and to programs, but for its times.
const std::string to_people = R"(T  power     \u001bxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx  7
T  power     a                                                  "b\" -> \"\\"
T  power     b                                                  9.95
T  power     c                                                  []
T  power     \u001bxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx  7 -> (none)
T  power     a                                                  "b\" -> \"\\" -> []
T  power     c[0].d                                             (none) -> {}
T  power     c[1]                                               (none) -> null
T  power     can't be read: Line 1, Column 2 Missing '}' or object member name
T  power     can't be read: No such file or directory
T  power     c[1]                                               null -> true
)";
const std::string to_programs =
    R"({"document":"power","state":{"\u001bxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx":7,)"
    R"("a":"b\" -> \"\\","b":9.9499999999999993,"c":[]},"time":"T"}
{"document":"power","old":7,"path":"\u001bxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx","time":"T"}
{"document":"power","new":[],"old":"b\" -> \"\\","path":"a","time":"T"}
{"document":"power","new":{},"path":"c[0].d","time":"T"}
{"document":"power","new":null,"path":"c[1]","time":"T"}
{"document":"power","problem":"Line 1, Column 2 Missing '}' or object member name","time":"T"}
{"document":"power","problem":"No such file or directory","time":"T"}
{"document":"power","new":true,"old":null,"path":"c[1]","time":"T"}
)";

TEST_F(Statusctl, WatchShowsTheStateAndEachChange)
{
    start();
    const std::string strange = R"({"\u001b)" + std::string(44, 'x') + R"(":7,)";
    write_document("power.json", strange + R"("a":"b\" -> \"\\","b":9.95,"c":[]})");
    write_document("outputs.json", "");
    const Tool people({"watch", "power.json", "--count", "4"}, "",
                      [] { setenv("TZ", "XYZ-12", 1); });
    const Tool programs({"watch", "--json"});
    const auto wait_both = [&](const std::string& part) {
        people.wait_output(part);
        programs.wait_output(part);
    };
    wait_both(R"("b\" -> \"\\")");
    // Before the one has read all, and after it has subscribed.
    write_document("power.json", R"({"a":[],"b":9.95,"c":[{"d":{}},null]})");
    write_document("outputs.json", "{}");
    wait_both("c[1]");
    programs.wait_output(R"("state":{})");
    write_document("power.json", "{\x1B]");
    wait_both("Missing");
    write_document("power.json", "{\x1B]");  // what stays as it is isn't told again
    write_document("outputs.json", "[]");
    programs.wait_output(R"({"document":"outputs","new":[],"old":{},"path":"","time":)");
    std::filesystem::remove(power_document.path);
    wait_both("No such file");
    write_document("power.json", R"({"a":[],"b":9.95,"c":[{"d":{}},true]})");
    programs.wait_output(R"("new":true)");
    EXPECT_EQ(people.wait(), 0);
    kill(programs.pid, SIGTERM);
    EXPECT_EQ(programs.wait(), 0);
    EXPECT_EQ(timeless(people.output()), to_people);
    const std::regex others(R"(\{"document":"(?!power).*\n)");
    EXPECT_EQ(std::regex_replace(timeless(programs.output()), others, ""), to_programs);
    EXPECT_EQ(people.complaint() + programs.complaint(), "");

    std::tm time = {};  // of the first line, in UTC
    const std::string first = programs.output();
    strptime(first.c_str() + first.find(R"("time":")") + 8, "%Y-%m-%dT%H:%M:%S", &time);
    EXPECT_LT(std::abs(timegm(&time) - std::time(nullptr)), 100);
    EXPECT_NEAR((std::stoi(people.output()) - time.tm_hour + 24) % 24, 12, 1)
        << "of the local zone";
}

TEST_F(Statusctl, ColoursAreForTerminalsThatHaveThem)
{
    std::filesystem::create_directory(status_directory);
    const std::string coloured = "\033[2mT\033[0m  \033[36mpower   \033[0m  a" +
                                 std::string(48, ' ') +
                                 "  \033[31m1\033[0m -> \033[32m2\033[0m\r\n";
    const std::string plain = std::regex_replace(coloured, std::regex("\033[^m]*m"), "");
    const struct {
        const char* environment[3];  // of what matters; the last is null
        const std::string& shown;
    } rows[] = {{{"TERM=xterm"}, coloured},
                {{"TERM=xterm", "NO_COLOR="}, coloured},
                {{"TERM=xterm", "NO_COLOR=1"}, plain},
                {{"TERM=dumb"}, plain},
                {{}, plain}};
    for (const auto& row : rows) {
        int ours = -1;
        int its = -1;
        ASSERT_EQ(openpty(&ours, &its, nullptr, nullptr, nullptr), 0);
        write_document("power.json", R"({"a":1})");
        const Tool watch({"watch", "power"}, "", [&row, its] {
            dup2(its, STDOUT_FILENO);
            unsetenv("TERM");
            unsetenv("NO_COLOR");
            for (const char* const* setting = row.environment; *setting != nullptr; ++setting) {
                putenv(const_cast<char*>(*setting));
            }
        });
        close(its);
        FILE* const terminal = fdopen(ours, "r");
        char line[200] = "";
        EXPECT_NE(fgets(line, sizeof line, terminal), nullptr);
        write_document("power.json", R"({"a":2})");
        EXPECT_NE(fgets(line, sizeof line, terminal), nullptr);
        EXPECT_EQ(timeless(line), row.shown);
        kill(watch.pid, SIGINT);
        EXPECT_EQ(watch.wait(), 0);
        std::fclose(terminal);
    }
}

TEST_F(Statusctl, SendShowsWhatBecomesOfAMessage)
{
    start();
    int value = -1;  // which the service does not take
    wait_until("a change within a second", [&value] {
        const std::string current = std::to_string(--value);  // like an option
        const Tool tool({"send", "--show", "power_v_value", current});
        return tool.wait() == 0 &&
               std::regex_match(tool.output(), std::regex(".* -> " + current + "\n"));
    });
    send_line("link_status port=1");
    send_line("video_status isStable=1");  // taken, as no link is reported yet
    settle();
    write_document("outputs.json", "{]");  // which is told, and is no change
    const std::string nothing =
        "T  outputs   can't be read: Line 1, Column 2 Missing '}' or object member name\n"
        "nothing changed within a second: ";
    const std::string down = nothing +
                             "inputs[1].video.connected is false, and while a link is down, "
                             "reports about its input are dropped\n";
    const std::string unknown =
        nothing + "it is what the documents say already, or the service's log has the reason\n";
    const auto begin = std::chrono::steady_clock::now();
    expect_results({{{"send", "--show", "video_start_working", "1"}, 0, down},
                    {{"send", "--show", "video_status", "port=1"}, 0, down},
                    {{"send", "--show", "video_status", "isStable=1"}, 0, unknown},
                    {{"send", "--show", "--raw", "0800000000000000"}, 0, unknown}});
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    send_line("link_status isConnect=1");
    send_line("video_status");
    settle();
    expect_results({{{"send", "--show", "video_status"}, 0, unknown}});  // there is just no signal
}

TEST_F(Statusctl, TextOfOthersCanNotActOnATerminal)
{
    std::filesystem::create_directory(status_directory);
    // The ends of what is hidden and their neighbours, and the ends of what UTF-8 can say: hidden
    // or not, they are shown as they can stand in a document.
    const std::string same =
        R"(\u0000\u0001\u001f ~\u007f\u009f)"
        u8"\u00A0\u00AC\\u00ad\u00AE\u061B\\u061c\u061D\u180D\\u180e\u180F\u200A\\u200b\\u200f"
        u8"\u2010\u2027\\u2028\\u202e\u202F\u205F\\u2060\\u206f\u2070\uFEFE\\ufeff\uFF00\uFFF8"
        u8"\\ufff9\\ufffb\uFFFC\u07FF\u0800\uD7FF\uE000\U00010000\U000DFFFF\U000E0080\U0010FFFF";
    const std::string none =
        "\xFF\xC0\xAF\xE0\x9F\xBF\xED\xA0\x80\xF0\x8F\xBF\xBF\xF4\x90\x80\x80\x80\xC3";
    write_document("power.json", "[\"" + same + u8"\U000E0000\U000E007F" + none +
                                     "\",{\"\x7F\xC3\xA9\":7 // a comment\n}]");
    expect_results(
        {{{"get", "power", "[0]"},
          0,
          same + R"(\U000e0000\U000e007f)"
                 R"(\xff\xc0\xaf\xe0\x9f\xbf\xed\xa0\x80\xf0\x8f\xbf\xbf\xf4\x90\x80\x80\x80\xc3)"
                 "\n"},
         {{"get", "power", "1"}, 0, "{\n    \"\\u007f\\u00e9\" : 7\n}\n"},
         {{"get", "power", "[x]"}, 1, "statusctl: /var/run/status/power.json: no member [x]\n"}});
}

TEST_F(Statusctl, WaitsForWhatPassesAndTellsWhatDoesNot)
{
    start();
    stop();
    const std::string failure = "statusctl: can't send to /tmp/json_app.sock: the service";
    expect_results({{{"send", "ethernet_status"}, 1, failure + " is not there\n"}});
    std::filesystem::remove(message_socket_path);
    expect_results({{{"send", "--show", "ethernet_status"}, 1, failure + " is not there\n"}});
    EXPECT_EQ(Tool({"get"}).wait(), 0);

    bind_socket();
    std::string flood;
    for (int i = 0; i < 5000; ++i) {
        flood += "ethernet_status\n";
    }
    write_document("inputs.json", " \n");
    write_document("usb-host.json", "{}{}");
    write_document("ethernet.json", std::string(100000, '[') + std::string(100000, ']'));
    write_document("power.json", "{}");
    const int locked = open(outputs_document.path, O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(locked, LOCK_EX), 0);
    expect_results({
        {{"send", "--file", "-"}, 1, failure + "'s receive queue stays full\n", flood},
        {{"get"}, 1, R"({
    "power" : {}
}
statusctl: /var/run/status/inputs.json: empty
statusctl: /var/run/status/usb-host.json: Line 1, Column 3 Extra non-whitespace after JSON value.
statusctl: /var/run/status/ethernet.json: nested too deeply
statusctl: /var/run/status/outputs.json: locked by another process
)"},
    });
    close(locked);
    write_document("ethernet.json", "");

    received();
    const Tool slowed({"send", "--file", "-"}, flood.substr(0, 30 * sizeof "ethernet_status"));
    std::size_t count = 0;
    wait_until("what waits", [&] { return (count += received().size()) >= 30; });
    EXPECT_EQ(slowed.wait(), 0) << slowed.complaint();
    wait_until("a document that becomes good within the tool's patience", [] {
        write_document("inputs.json", "");
        const int looks = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
        inotify_add_watch(looks, inputs_document.path, IN_CLOSE_NOWRITE);
        const Tool patient({"get", "inputs", "[0]"});
        wait_until("its first look", [looks] {
            char event[100];
            return read(looks, event, sizeof event) > 0;
        });
        close(looks);
        write_document("inputs.json", "[7]");
        return patient.wait() == 0 && patient.output() == "7\n";
    });
}

}  // namespace
