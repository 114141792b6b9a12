/// The Ethernet ports: the driver's file, the control of the ports and the rule for LAN4.
#include <filesystem>

#include "tests/service.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* all_up = "1 2 1 0 0 0 1 1 1 1 0 0";

class Ethernet : public ServiceTest {
protected:
    void SetUp() override
    {
        fs::remove_all(ethernet_port_status_path);
        ServiceTest::SetUp();
    }
    static void drive(const std::string& text) { write_file(ethernet_port_status_path, text); }
    static void control(const std::string& text) { send_text(MSG_TYPE_ETHERNET_CONTROL, text); }

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
            if (!link["status"].asBool()) {
                EXPECT_EQ(text, "N/A/N/A");
            }
            links += link["status"].asBool() ? text + " " : "- ";
        }
        return links;
    }
};

}  // namespace

TEST_F(Ethernet, ReadsTheDriversFile)
{
    const std::string up = "1000Mbps/FULL - 100Mbps/FULL - ";
    const std::string down = "- - - - ";
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
    const auto report_link = [](std::uint8_t is_connect) {
        send_record(MSG_TYPE_LINK_STATUS, CmdDataLinkStatus{1, is_connect, 0, 0});
    };
    const std::string up = "- - - 10Mbps/HALF ";
    const std::string down = "- - - - ";
    const struct {
        const char* what;
        Action action;
        const std::string& links;
    } rows[] = {
        {"at start", [] {}, down},
        {"plug in", [] { send_text(MSG_TYPE_USB_HOST_IN2, "1"); }, up},
        {"plug state not 1", [] { send_text(MSG_TYPE_USB_HOST_IN2, "5"); }, down},
        {"other plug", [] { send_text(MSG_TYPE_USB_HOST_IN1, "1"); }, down},
        {"plug in again", [] { send_text(MSG_TYPE_USB_HOST_IN2, "1"); }, up},
        {"USB-C input without a report", [] { control("4 on 1"); }, down},
        {"USB-C input connected", [&] { report_link(1); }, up},
        {"not there", [&] { report_link(0); }, down},
        {"nothing selected", [&] { report_link(1), control("4 on 2"); }, down},
        {"another port's third number", [] { control("3 on 1"); }, down},
        {"negative", [] { control("4 on -1"); }, down},
        {"the plug, as no number is 0", [] { control("4 on"); }, up},
        {"disabled", [] { control("4 off 0"); }, down},
        {"a word that is too long", [] { control("4 on 1"), control("4 onwardsx 1"); }, down},
        {"enabled by the plug's rule", [] { control("4 on 0"); }, up},
    };
    for (const auto& row : rows) {
        row.action();
        EXPECT_EQ(links_after_update(), row.links) << row.what;
    }
}

TEST_F(Ethernet, EnablesPortsByTheWordOnAlone)
{
    const struct {
        const char* text;
        int position;
        bool enabled;
    } rows[] = {
        {"1 off", 0, false},  {"1 on", 0, true},   {"2 ON", 1, false},
        {"3 only", 2, false}, {"3 on 9", 2, true}, {"4 On 1", 3, false},
        {"2 on", 1, true},    {"2", 1, false},     {"2 onlongword", 1, false},
    };
    for (const auto& row : rows) {
        control(row.text);
        settle();
        EXPECT_EQ(value_of("ethernet.json",
                           ".ethernet[" + std::to_string(row.position) + "].control.enabled"),
                  row.enabled)
            << row.text;
    }
    for (const char* text : {"0 on", "5 on 1", "-1 on", "", "on 1"}) {
        EXPECT_EQ(accesses_by("ethernet.json", [&] { control(text); }), (Accesses{0, 0})) << text;
    }

    drive(all_up);
    control("1 on");
    EXPECT_EQ(links_after_update(), "1000Mbps/FULL - 100Mbps/FULL - ");
    control("1 off");
    settle();
    EXPECT_EQ(value_of("ethernet.json", ".ethernet[0].link.status"), true);
    EXPECT_EQ(links_after_update(), "- - 100Mbps/FULL - ");
}

TEST_F(Ethernet, RebuildsTheDocument)
{
    for (const char* text : {"", "[]", R"({"ethernet": {}})", R"({"other": 1})"}) {
        write_document("ethernet.json", text);
        EXPECT_EQ(accesses_by("ethernet.json", [] { control("4 on 0"); }), (Accesses{1, 0}));
        EXPECT_EQ(text_of("ethernet.json"), text);
    }
    drive(all_up);
    write_document("ethernet.json", R"({"ethernet": [{"port": "LAN1", "control": 5}, "junk",
        {"port": "LAN3", "control": {"enabled": "yes"}}]})");
    EXPECT_EQ(links_after_update(), "1000Mbps/FULL - 100Mbps/FULL - ");
    EXPECT_EQ(value_of("ethernet.json", ".ethernet[1].port"), "LAN");
    EXPECT_EQ(value_of("ethernet.json", ".ethernet[3].type"), "UTP");
    EXPECT_EQ(value_of("ethernet.json", ".ethernet[3].control.enabled"), true);

    write_document("ethernet.json", R"({"ethernet": [{"port": "LAN1"}, {"port": "LAN2"}]})");
    control("4 on");
    settle();
    for (const char* entry : {".ethernet[2]", ".ethernet[3]"}) {
        EXPECT_EQ(value_of("ethernet.json", std::string(entry) + ".port"), "LAN4");
        EXPECT_EQ(value_of("ethernet.json", std::string(entry) + ".link.speed"), "N/A");
        EXPECT_EQ(value_of("ethernet.json", std::string(entry) + ".control.enabled"), true);
    }
    EXPECT_FALSE(value_of("ethernet.json", ".ethernet[0]").isMember("control"));
}
