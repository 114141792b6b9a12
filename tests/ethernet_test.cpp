/// The Ethernet ports: the driver's file, the control of the ports and the rule for LAN4.
#include <filesystem>
#include <tuple>

#include "tests/video_test.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* all_up = "1 2 1 0 0 0 1 1 1 1 0 0";
const std::string up = "1000Mbps/FULL - 100Mbps/FULL - ";  // what it gives without a plug
const std::string down = "- - - - ";

class Ethernet : public VideoTest {
protected:
    void SetUp() override
    {
        fs::remove_all(ethernet_port_status_path);
        VideoTest::SetUp();
    }
    static void drive(const std::string& text) { write_file(ethernet_port_status_path, text); }
    static void control(const std::string& text) { send_text(MSG_TYPE_ETHERNET_CONTROL, text); }
    static void plug(const std::string& state) { send_text(MSG_TYPE_USB_HOST_IN2, state); }

    /// The links of the four ports after an update: "speed/mode", "-" for one that is down.
    std::string links_after_update()
    {
        send(MSG_TYPE_ETHERNET_STATUS, 0);
        settle();
        std::string links;
        for (const Json::Value& entry : value_of("ethernet.json", ".ethernet")) {
            const Json::Value& link = entry["link"];
            EXPECT_EQ(link.size(), 3U);
            const std::string text = link["speed"].asString() + "/" + link["mode"].asString();
            EXPECT_TRUE(link["status"].asBool() || text == "N/A/N/A") << text;
            links += link["status"].asBool() ? text + " " : "- ";
        }
        return links;
    }
};

}  // namespace

TEST_F(Ethernet, ReadsTheDriversFile)
{
    EXPECT_EQ(links_after_update(), down) << "no file";
    const std::pair<std::string, std::string> rows[] = {
        {all_up, up},
        {"1\n2\t1  0 0 0\n\n1 1 1\r\n1 0 0\n", up},
        {std::string(all_up) + " 9 junk", up},
        {"1 2 1 0 0 0 1 1 1 1 0", down},
        {"1 2 1 0 0 0 1 1 1 1 0 x", down},
        {"1 2 1 0 0 0 1,1 1 1 0 0", down},
        {"", down},
        {std::string("\0\xff\x80 1 2 1", 8), down},
        {"2 2 1 -1 2 1 0 2 1 1 0 0", down},
        {"1 3 2 1 -1 -1 1 0 0 0 0 0", "N/A/N/A N/A/N/A 10Mbps/HALF - "},
        {"1 2147483647 -2147483648 1 1 0 0 0 0 0 0 0", "N/A/N/A 100Mbps/HALF - - "},
        {std::string(100000, ' ') + all_up, up},
    };
    for (const auto& [text, links] : rows) {
        drive(text);
        EXPECT_EQ(links_after_update(), links) << text.substr(0, 60);
    }
    fs::remove(ethernet_port_status_path);
    fs::create_directory(ethernet_port_status_path);
    EXPECT_EQ(links_after_update(), down) << "a folder";
    EXPECT_EQ(value_of("ethernet.json", ".ethernet[2].type"), "SFP");
}

TEST_F(Ethernet, WritesAndAnnouncesEveryUpdate)
{
    drive(all_up);
    const auto update_twice = [] {
        send(MSG_TYPE_ETHERNET_STATUS, 0);
        send(MSG_TYPE_ETHERNET_STATUS, 77, "not looked at");
    };
    EXPECT_EQ(accesses_by("ethernet.json", update_twice), (Accesses{2, 2}));
    EXPECT_EQ(accesses_by("ethernet.json", [] { control("1 off"), control("1 off"); }),
              (Accesses{2, 2}));
    EXPECT_EQ(events.take_names(), std::vector<std::string>(4, "e_ethernet_json_update"));
}

TEST_F(Ethernet, GivesLan4ALinkByItsRule)
{
    drive("0 0 0 0 0 0 0 0 0 1 0 0");
    const std::tuple<const char*, Action, bool> rows[] = {
        {"at start", [] {}, false},
        {"plug in", [] { plug("1"); }, true},
        {"plug state not 1", [] { plug("5"); }, false},
        {"other plug", [] { send_text(MSG_TYPE_USB_HOST_IN1, "1"); }, false},
        {"plug in again", [] { plug("1"); }, true},
        {"USB-C input without a report", [] { control("4 on 1"); }, false},
        {"USB-C input connected", link(1, 1), true},
        {"USB-C input not there", link(1, 0), false},
        {"nothing selected", [] { link(1, 1)(), control("4 on 2"); }, false},
        {"another port's third number", [] { control("3 on 1"); }, false},
        {"negative", [] { control("4 on -1"); }, false},
        {"the plug, as no number is 0", [] { control("4 on"); }, true},
        {"disabled", [] { control("4 off 0"); }, false},
        {"a word that is too long", [] { control("4 on 1"), control("4 onwardsx 1"); }, false},
        {"enabled by the plug's rule", [] { control("4 on 0"); }, true},
    };
    for (const auto& [what, action, is_up] : rows) {
        action();
        EXPECT_EQ(links_after_update(), is_up ? "- - - 10Mbps/HALF " : down) << what;
    }
}

TEST_F(Ethernet, EnablesPortsByTheWordOnAlone)
{
    const std::tuple<const char*, int, bool> rows[] = {
        {"1 off", 0, false},  {"1 on", 0, true},   {"2 ON", 1, false},
        {"3 only", 2, false}, {"3 on 9", 2, true}, {"4 On 1", 3, false},
        {"2 on", 1, true},    {"2", 1, false},     {"2 onlongword", 1, false},
    };
    for (const auto& [text, position, enabled] : rows) {
        control(text);
        settle();
        const Json::Value entry = value_of("ethernet.json", ".ethernet")[position];
        EXPECT_EQ(entry["control"]["enabled"], enabled) << text;
    }
    for (const char* text : {"0 on", "5 on 1", "-1 on", "", "on 1"}) {
        EXPECT_EQ(accesses_by("ethernet.json", [&] { control(text); }), no_access) << text;
    }

    drive(all_up);
    control("1 on");
    EXPECT_EQ(links_after_update(), up);
    control("1 off");
    settle();
    EXPECT_EQ(value_of("ethernet.json", ".ethernet[0].link.status"), true);
    EXPECT_EQ(links_after_update(), "- - 100Mbps/FULL - ");
}

TEST_F(Ethernet, RebuildsTheDocument)
{
    for (const char* text : {"", "[]", R"({"ethernet": {}})", R"({"other": 1})"}) {
        write_document("ethernet.json", text);
        EXPECT_EQ(accesses_by("ethernet.json", [] { control("4 on 0"); }), only_read);
        EXPECT_EQ(text_of("ethernet.json"), text);
    }
    drive(all_up);
    write_document("ethernet.json", R"({"ethernet": [{"port": "LAN1", "control": 5}, "junk",
        {"port": "LAN3", "control": {"enabled": "yes"}}]})");
    EXPECT_EQ(links_after_update(), up);
    Json::Value built = parsed(R"({"port": "LAN", "type": "UTP", "control": {"enabled": true},
                               "link": {"status": false, "speed": "N/A", "mode": "N/A"}})");
    EXPECT_EQ(value_of("ethernet.json", ".ethernet[1]"), built);
    EXPECT_EQ(value_of("ethernet.json", ".ethernet[3]"), built);

    write_document("ethernet.json", R"({"ethernet": [{"port": "LAN1"}, {"port": "LAN2"}]})");
    control("4 on");
    settle();
    built["port"] = "LAN4";
    Json::Value expected = parsed(R"({"ethernet": [{"port": "LAN1"}, {"port": "LAN2"}]})");
    expected["ethernet"][2] = expected["ethernet"][3] = built;
    EXPECT_EQ(document("ethernet.json"), expected);
}
