/// Link status: the transitions of an input's link, what its end empties and what it leaves,
/// and the gate that it is to all other reports about the input.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "tests/video_test.h"

namespace fs = std::filesystem;

namespace {

class LinkStatus : public VideoTest {
protected:
    void expect_cost(const Action& action, const Accesses& of_inputs, const Accesses& of_usb_host)
    {
        Accesses cost = {};
        EXPECT_EQ(accesses_by("usb-host.json", [&] { cost = cost_of(action); }), of_usb_host);
        EXPECT_EQ(cost, of_inputs);
    }
};

}  // namespace

TEST_F(LinkStatus, DownEmptiesTheInputAloneAndUpRestoresNothing)
{
    const Json::Value seeded = document("inputs.json")["inputs"];
    const Json::Value full = filled(document("inputs.json"));
    for (const u8 port : {u8{0}, u8{1}, u8{5}}) {
        SCOPED_TRACE(int{port});
        const Json::ArrayIndex position = port == 1 ? 1 : 0;
        replace("inputs.json", full);
        expect_cost(link(port, 1), rewritten, no_access);
        Json::Value up = full;
        up["inputs"][position]["video"]["connected"] = true;
        up["inputs"][position]["video"]["signal_type"] = port == 1 ? "DP" : "N/A";
        EXPECT_EQ(document("inputs.json"), up);
        expect_cost(link(port, 1, 1), no_access, no_access);

        replace("inputs.json", full);
        expect_cost(link(port, 2, 1), rewritten, port == 1 ? rewritten : no_access);
        Json::Value down = full;
        Json::Value& entry = down["inputs"][position];
        entry["audio"] = seeded[position]["audio"];
        entry["video"] = seeded[position]["video"];
        entry["video"]["hdcp"]["control"]["allowed_hdcp_version"] = "left";
        EXPECT_EQ(document("inputs.json"), down);
        expect_cost(link(port, 0), no_access, no_access);
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
        replace("usb-host.json", root);
        link(1, 1)();
        expect_cost(link(1, 0), rewritten, rewritten);
        root["usb_c"][1]["index"] = Json::Value();  // created by the look for it
        root["usb_c"][2] = seeded;
        root["usb_c"][2]["charging"]["control"]["charging_enabled"] = charging_enabled;
        EXPECT_EQ(document("usb-host.json"), root) << charging;
    }
}

TEST_F(LinkStatus, DownAnnouncesTheUsbCPortBeforeItWritesTheInput)
{
    send_text(MSG_TYPE_USB_HOST_IN1, "1");
    settle();
    EXPECT_EQ(value_of("usb-host.json", ".usb_c[0].connected"), true);
    events.take_names();

    const int reader = open(inputs_document_path, O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(reader, LOCK_SH), 0);  // the writer empties the document, then waits
    link(1, 0)();
    wait_until("the write of the input", [] { return fs::file_size(inputs_document_path) == 0; });
    EXPECT_EQ(value_of("usb-host.json", ".usb_c[0].connected"), false);
    EXPECT_EQ(events.take_names(), std::vector<std::string>{"e_usb_host_json_update"});
    close(reader);
    settle();
    EXPECT_EQ(document("inputs.json")["inputs"].size(), 3U);
}

TEST_F(LinkStatus, RebuildsDocumentsThatAreGone)
{
    Json::Value inputs = parsed(R"({"inputs": [{"video": null}]})");
    Json::Value& entry = inputs["inputs"][1] = document("inputs.json")["inputs"][1];
    entry.removeMember("port_type");
    entry.removeMember("index");
    entry["video"]["hdcp"].removeMember("control");
    fs::remove(inputs_document_path);
    fs::remove(usb_host_document_path);
    link(1, 0)();
    settle();
    EXPECT_EQ(document("inputs.json"), inputs);
    EXPECT_EQ(document("usb-host.json"), parsed(R"({"usb_c": []})"));
}

TEST_F(LinkStatus, GatesAllOtherReportsOfTheInput)
{
    for (const u8 port : {u8{0}, u8{1}}) {
        std::vector<Action> reports = {signal(port, 1), timing(timing_1080p60, port), hdcp(port, 2),
                                       audio(port, 1, 0, 0, 0)};
        if (port == 0) {
            reports.push_back(mode(port, 1));
        }
        const auto expect_each = [&](const std::string& state, const Accesses& cost) {
            for (std::size_t number = 0; number < reports.size(); ++number) {
                EXPECT_EQ(cost_of(reports[number]), cost) << state << ", report " << number;
            }
        };
        expect_each("before any link report", rewritten);
        link(port, 0)();
        expect_each("link down", no_access);
        link(port, 1)();
        expect_each("link up", rewritten);
    }
}
