/// The state of the signal on a video input: its states, what a report publishes, and how the
/// loss of a signal empties the input.
#include <sstream>

#include <json/reader.h>

#include "tests/service.h"

namespace {

constexpr Accesses untouched = {0, 0};
constexpr Accesses only_read = {1, 0};
constexpr Accesses rewritten = {1, 1};

class VideoStatus : public ServiceTest {
protected:
    static CmdDataVideoStatus report(std::uint8_t port, std::uint8_t isStable,
                                     std::uint8_t colorspace = 1, std::uint8_t deepcolor = 1,
                                     std::uint8_t color_range = 1)
    {
        CmdDataVideoStatus record = {};
        record.port = port;
        record.isStable = isStable;
        record.colorspace = colorspace;
        record.deepcolor = deepcolor;
        record.color_range = color_range;
        return record;
    }

    Accesses accesses_by_report(const CmdDataVideoStatus& record)
    {
        return accesses_by("inputs.json", [&] { send_record(MSG_TYPE_VIDEO_STATUS, record); });
    }

    static void report_link(std::uint8_t port, std::uint8_t is_connect)
    {
        send_record(MSG_TYPE_LINK_STATUS, CmdDataLinkStatus{port, is_connect, 0, 0});
    }

    static void report_mode(std::uint8_t mode)
    {
        send_record(MSG_TYPE_HDMI_VIDEO_MODE, CmdDataHdmiVideoMode{0, mode, {}});
    }

    static Json::Value video_of(int port)
    {
        return value_of("inputs.json", ".inputs[" + std::to_string(port) + "].video");
    }
};

/// Every value in place of which a text stands: objects keep their form.
Json::Value filled(const Json::Value& value)
{
    if (!value.isObject()) {
        return "leftover";
    }
    Json::Value result;
    for (const std::string& name : value.getMemberNames()) {
        result[name] = filled(value[name]);
    }
    return result;
}

}  // namespace

TEST_F(VideoStatus, ShowsEveryCodeOnBothInputs)
{
    const struct {
        std::uint8_t code;
        const char* space;
        const char* depth;
        const char* range;
    } rows[] = {
        {0, "RGB", "8 bpc", "DEFAULT"},
        {1, "YCbCr 4:2:2", "10 bpc", "LIMITED"},
        {2, "YCbCr 4:4:4", "12 bpc", "FULL"},
        {3, "YCbCr 4:2:0", "N/A", "N/A"},
        {4, "N/A", "N/A", "N/A"},
        {255, "N/A", "N/A", "N/A"},
    };
    for (const int port : {0, 1}) {
        Json::Value expected = document("inputs.json");
        Json::Value& video = expected["inputs"][port]["video"];
        video["signal_present"] = true;
        video["signal_type"] = port == 1 ? "DP" : "N/A";
        for (const auto& row : rows) {
            video["color"]["color_space"] = row.space;
            video["color"]["color_depth"] = row.depth;
            video["color"]["color_range"] = row.range;
            const auto record =
                report(static_cast<std::uint8_t>(port), 1, row.code, row.code, row.code);
            EXPECT_EQ(accesses_by_report(record), rewritten) << int{row.code};
            EXPECT_EQ(document("inputs.json"), expected) << int{row.code};
        }
    }
}

TEST_F(VideoStatus, RewritesTheDocumentOnlyForAChange)
{
    EXPECT_EQ(accesses_by_report(report(0, 1)), rewritten);
    auto other = report(255, 1);  // the HDMI input, as every port but 1
    EXPECT_EQ(accesses_by_report(other), only_read);
    other.isMute = other.frameRate = other.aspectRatio = other.interlaced = 1;
    other.hactive = other.vactive = 1080;
    other.reserved_1 = other.reserved_2[0] = 1;
    EXPECT_EQ(accesses_by_report(other), only_read);
    const Json::Value before = document("inputs.json");
    EXPECT_EQ(accesses_by_report(report(2, 2)), rewritten);  // another byte that says stable
    EXPECT_EQ(document("inputs.json"), before);

    // Each code is compared for itself, and as it came: two codes can have one text.
    EXPECT_EQ(accesses_by_report(report(0, 2, 7)), rewritten);
    EXPECT_EQ(accesses_by_report(report(0, 2, 8)), rewritten);
    EXPECT_EQ(accesses_by_report(report(0, 2, 8, 2)), rewritten);
    EXPECT_EQ(accesses_by_report(report(0, 2, 8, 2, 0)), rewritten);
    EXPECT_EQ(accesses_by_report(report(0, 2, 8, 2, 0)), only_read);
    EXPECT_EQ(video_of(0)["color"]["color_depth"], "12 bpc");
}

// The states of an input: not reported, link down, link up, lost, stable.
TEST_F(VideoStatus, FollowsTheStatesOfTheInput)
{
    for (const std::uint8_t port : {std::uint8_t{0}, std::uint8_t{1}}) {
        const char* type = port == 1 ? "DP" : "N/A";
        const auto shows = [port](bool signal, const char* signal_type, const char* depth) {
            const Json::Value video = video_of(port);
            EXPECT_EQ(video["signal_present"], signal);
            EXPECT_EQ(video["signal_type"], signal_type);
            EXPECT_EQ(video["color"]["color_depth"], depth);
        };
        EXPECT_EQ(accesses_by_report(report(port, 0)), rewritten);  // not reported -> lost
        shows(false, "N/A", "N/A");
        EXPECT_EQ(accesses_by_report(report(port, 0)), only_read);
        EXPECT_EQ(accesses_by_report(report(port, 1)), rewritten);  // -> stable
        shows(true, type, "10 bpc");
        report_link(port, 0);
        EXPECT_EQ(accesses_by_report(report(port, 1)), untouched);  // link down
        EXPECT_EQ(accesses_by_report(report(port, 0)), untouched);
        shows(false, "N/A", "N/A");
        report_link(port, 1);
        settle();
        shows(false, type, "N/A");
        EXPECT_EQ(accesses_by_report(report(port, 0)), rewritten);  // link up -> lost
        shows(false, "N/A", "N/A");
        EXPECT_EQ(accesses_by_report(report(port, 1)), rewritten);  // -> stable
        shows(true, type, "10 bpc");
        EXPECT_EQ(accesses_by_report(report(port, 0)), rewritten);  // -> lost
        shows(false, "N/A", "N/A");
        report_link(port, 0);
        report_link(port, 1);
        EXPECT_EQ(accesses_by_report(report(port, 1)), rewritten);  // link up -> stable
        shows(true, type, "10 bpc");
    }
}

TEST_F(VideoStatus, ALostSignalEmptiesTheInputAndNothingElse)
{
    Json::Value expected = document("inputs.json");
    Json::Value leftovers = expected;
    for (const char* member : {"video", "audio"}) {
        for (Json::Value& entry : leftovers["inputs"]) {
            entry[member] = filled(entry[member]);
        }
    }
    for (const int port : {0, 1}) {
        write_document("inputs.json", leftovers.toStyledString());
        EXPECT_EQ(accesses_by_report(report(static_cast<std::uint8_t>(port), 0)), rewritten);
        Json::Value emptied = leftovers;
        emptied["inputs"][port] = expected["inputs"][port];
        Json::Value& video = emptied["inputs"][port]["video"];
        video["connected"] = "leftover";
        video["hdcp"]["control"]["allowed_hdcp_version"] = "leftover";
        EXPECT_EQ(document("inputs.json"), emptied);
    }
}

TEST_F(VideoStatus, TellsABlankInputFromOneThatHasShownSomething)
{
    accesses_by_report(report(0, 0));
    report_mode(1);
    settle();
    EXPECT_EQ(video_of(0)["signal_type"], "HDMI");
    EXPECT_EQ(accesses_by_report(report(0, 0)), rewritten);
    EXPECT_EQ(video_of(0)["signal_type"], "N/A");
    report_mode(1);  // counts as new
    settle();
    EXPECT_EQ(accesses_by_report(report(0, 1)), rewritten);
    EXPECT_EQ(video_of(0)["signal_type"], "HDMI");

    // What has no place in the memory of the input stays.
    EXPECT_EQ(accesses_by_report(report(0, 0)), rewritten);
    send_record(MSG_TYPE_HDCP_STATUS, CmdDataHDCPStatus{0, 1, 2, 0});
    EXPECT_EQ(accesses_by_report(report(0, 0)), only_read);
    EXPECT_EQ(video_of(0)["hdcp"]["active_hdcp_version"], "HDCP 2.2");

    // The code that stands for "nothing reported" is no change of its own.
    EXPECT_EQ(accesses_by_report(report(0, 1, 0x9F, 2, 0x9F)), rewritten);
    EXPECT_EQ(accesses_by_report(report(0, 1, 0x9F, 2, 0x9F)), only_read);
    EXPECT_EQ(video_of(0)["color"]["color_depth"], "12 bpc");
    EXPECT_EQ(accesses_by_report(report(0, 0)), rewritten);
    EXPECT_EQ(accesses_by_report(report(0, 1, 0x9F, 0x9F, 0x9F)), rewritten);  // signal_present
    EXPECT_EQ(accesses_by_report(report(0, 0)), rewritten);  // already blank otherwise
    EXPECT_EQ(video_of(0)["signal_present"], false);
}

TEST_F(VideoStatus, RebuildsADeletedDocumentFromTheReport)
{
    std::remove(inputs_document_path);
    accesses_by_report(report(1, 1, 0, 0, 0));
    Json::Value expected;
    std::istringstream(R"({"inputs": [{"video": null}, {"video": {
        "signal_present": true, "signal_type": "DP",
        "color": {"color_space": "RGB", "color_depth": "8 bpc", "color_range": "DEFAULT"}}}]})") >>
        expected;
    EXPECT_EQ(document("inputs.json"), expected);

    std::remove(inputs_document_path);
    EXPECT_EQ(accesses_by_report(report(1, 1, 0, 0, 0)), untouched);  // no change: no document
    EXPECT_EQ(text_of("inputs.json"), "");
}
