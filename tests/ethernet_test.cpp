/// The Ethernet ports: the driver's file, the control of the ports and the rule for LAN4.
#include <filesystem>
#include <utility>

#include "tests/table_test.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* all_up = "1 2 1 0 0 0 1 1 1 1 0 0";
const std::string up = "1000Mbps/FULL - 100Mbps/FULL - ";  // what it gives without a plug
const std::string down = "- - - - ";

class Ethernet : public TableTest {
protected:
    void SetUp() override
    {
        fs::remove_all(ethernet_port_status_path);
        TableTest::SetUp();
    }
    static void drive(const std::string& text) { write_file(ethernet_port_status_path, text); }

    /// The links of the four ports after an update: "speed/mode", "-" for one that is down.
    std::string links_after_update()
    {
        send_line("ethernet_status");
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
        send_line("ethernet_status");
        send(MSG_TYPE_ETHERNET_STATUS, 77, "not looked at");
    };
    EXPECT_EQ(accesses_by("ethernet.json", update_twice), (Accesses{2, 2}));
    EXPECT_EQ(events.take_names(), std::vector<std::string>(2, "e_ethernet_json_update"));
}

TEST_F(Ethernet, GivesLan4ALinkByItsRule)
{
    drive("0 0 0 0 0 0 0 0 0 1 0 0");
    play();
}

TEST_F(Ethernet, EnablesPortsByTheWordOnAlone)
{
    drive(all_up);
    play();
}

TEST_F(Ethernet, RebuildsTheDocument)
{
    drive(all_up);
    play();
}
