/// Link status: the transitions of an input's link, what its end empties and what it leaves,
/// and the gate that it is to all other reports about the input.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "store/documents.h"
#include "tests/table_test.h"

namespace fs = std::filesystem;

namespace {

class LinkStatus : public TableTest {
protected:
    void expect_cost(const std::string& line, const Accesses& of_inputs,
                     const Accesses& of_usb_host)
    {
        Accesses cost = {};
        EXPECT_EQ(accesses_by("usb-host.json", [&] { cost = cost_of(line); }), of_usb_host);
        EXPECT_EQ(cost, of_inputs);
    }
};

}  // namespace

TEST_F(LinkStatus, DownEmptiesTheInputAloneAndUpRestoresNothing)
{
    const Json::Value seeded = document("inputs.json")["inputs"];
    const Json::Value full = filled(document("inputs.json"));
    for (const int port : {0, 1, 5}) {
        const std::string link = "link_status port=" + std::to_string(port);
        SCOPED_TRACE(link);
        const Json::ArrayIndex position = port == 1 ? 1 : 0;
        make_document("inputs.json", full);
        expect_cost(link + " isConnect=1", rewritten, no_access);
        Json::Value up = full;
        up["inputs"][position]["video"]["connected"] = true;
        up["inputs"][position]["video"]["signal_type"] = port == 1 ? "DP" : "N/A";
        EXPECT_EQ(document("inputs.json"), up);
        expect_cost(link + " isConnect=1 isHpd=1", no_access, no_access);

        make_document("inputs.json", full);
        expect_cost(link + " isConnect=2 isHpd=1", rewritten, port == 1 ? rewritten : no_access);
        Json::Value down = full;
        Json::Value& entry = down["inputs"][position];
        entry["audio"] = seeded[position]["audio"];
        entry["video"] = seeded[position]["video"];
        entry["video"]["hdcp"]["control"]["allowed_hdcp_version"] = "left";
        EXPECT_EQ(document("inputs.json"), down);
        expect_cost(link, no_access, no_access);
    }
}

TEST_F(LinkStatus, DownEmptiesTheFirstUsbCPortOfIndex1)
{
    const Json::Value seeded = document("usb-host.json")["usb_c"][0];
    const std::pair<const char*, bool> rows[] = {
        {R"({"control": {"charging_enabled": true}})", true},
        {R"({"control": {"charging_enabled": false}})", false},
        {"null", false},
    };
    for (const auto& [charging, charging_enabled] : rows) {
        Json::Value root = parsed(R"({"usb_c": [{"index": 2}, {"connected": true},
                                     {"index": 1, "unknown": 0}, {"index": 1}]})");
        root["usb_c"][2]["charging"] = parsed(charging);
        make_document("usb-host.json", root);
        send_line("link_status port=1 isConnect=1");
        expect_cost("link_status port=1", rewritten, rewritten);
        root["usb_c"][1]["index"] = Json::Value();  // created by the look for it
        root["usb_c"][2] = seeded;
        root["usb_c"][2]["charging"]["control"]["charging_enabled"] = charging_enabled;
        EXPECT_EQ(document("usb-host.json"), root) << charging;
    }
}

TEST_F(LinkStatus, DownAnnouncesTheUsbCPortBeforeItWritesTheInput)
{
    send_line("usb_host_in1 1");
    settle();
    EXPECT_EQ(value_of("usb-host.json", ".usb_c[0].connected"), true);
    events.take_names();

    const int reader = open(inputs_document.path, O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(reader, LOCK_SH), 0);  // the writer empties the document, then waits
    send_line("link_status port=1");
    wait_until("the write of the input", [] { return fs::file_size(inputs_document.path) == 0; });
    EXPECT_EQ(value_of("usb-host.json", ".usb_c[0].connected"), false);
    EXPECT_EQ(events.take_names(), std::vector<std::string>{"e_usb_host_json_update"});
    close(reader);
    settle();
    EXPECT_EQ(document("inputs.json")["inputs"].size(), 3U);
}

// The signal type of the HDMI input, which has one port only, has its gate in its own suite.
TEST_F(LinkStatus, GatesAllOtherReportsOfTheInput)
{
    for (const std::string port : {" port=0", " port=1"}) {
        const auto expect_each = [&](const Accesses& cost) {
            for (const std::string report : {"video_status isStable=1", "hdcp_status status=2",
                                             "audio_status isStable=1", "1080p60"}) {
                EXPECT_EQ(cost_of(report + port), cost) << report + port;
            }
        };
        expect_each(rewritten);
        send_line("link_status isConnect=0" + port);
        expect_each(no_access);
        send_line("link_status isConnect=1" + port);
        expect_each(rewritten);
    }
}
