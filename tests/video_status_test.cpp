/// The state of the signal on a video input: its states, what a report publishes, and how the
/// loss of a signal empties the input.
#include <cstdio>
#include <tuple>

#include "tests/video_test.h"

namespace {

using VideoStatus = VideoTest;

std::string member_of(int port, const std::string& path)
{
    return ".inputs[" + std::to_string(port) + "].video." + path;
}

constexpr const char* depth = "color.color_depth";

}  // namespace

TEST_F(VideoStatus, ShowsEveryCodeOnBothInputs)
{
    const std::tuple<std::uint8_t, const char*, const char*, const char*> rows[] = {
        {0, "RGB", "8 bpc", "DEFAULT"},
        {1, "YCbCr 4:2:2", "10 bpc", "LIMITED"},
        {2, "YCbCr 4:4:4", "12 bpc", "FULL"},
        {3, "YCbCr 4:2:0", "N/A", "N/A"},
        {4, "N/A", "N/A", "N/A"},
        {255, "N/A", "N/A", "N/A"},
    };
    for (const u8 port : {u8{0}, u8{1}}) {
        Json::Value expected = document("inputs.json");
        Json::Value& video = expected["inputs"][port]["video"];
        video["signal_present"] = true;
        video["signal_type"] = port == 1 ? "DP" : "N/A";
        for (const auto& [code, space, bits, range] : rows) {
            video["color"]["color_space"] = space;
            video["color"]["color_depth"] = bits;
            video["color"]["color_range"] = range;
            EXPECT_EQ(cost_of(signal(port, 1, code, code, code)), rewritten) << int{code};
            EXPECT_EQ(document("inputs.json"), expected) << int{code};
        }
    }
}

TEST_F(VideoStatus, RewritesTheDocumentOnlyForAChange)
{
    const Action unused =
        report(MSG_TYPE_VIDEO_STATUS,
               CmdDataVideoStatus{0, 1, 1, 1, 1080, 1080, 1, 1, 1, 1, 1, 1, {1, 1}});
    const std::vector<Step> steps = {
        {signal(0, 1), rewritten, "10 bpc"},
        {signal(255, 1), only_read, "10 bpc"},  // the HDMI input, as every port but 1
        {unused, only_read, "10 bpc"},
        {signal(2, 2), rewritten, "10 bpc"},  // another byte that says stable
        // Each code is compared for itself, and as it came: two codes can have one text.
        {signal(0, 2, 7), rewritten, "10 bpc"},
        {signal(0, 2, 8), rewritten, "10 bpc"},
        {signal(0, 2, 8, 2), rewritten, "12 bpc"},
        {signal(0, 2, 8, 2, 0), rewritten, "12 bpc"},
        {signal(0, 2, 8, 2, 0), only_read, "12 bpc"},
        // The code that stands for "nothing reported" is no change of its own.
        {signal(0, 0), rewritten, "N/A"},
        {signal(0, 1, 0x9F, 2, 0x9F), rewritten, "12 bpc"},
        {signal(0, 1, 0x9F, 2, 0x9F), only_read, "12 bpc"},
        {signal(0, 0), rewritten, "N/A"},
        {signal(0, 1, 0x9F, 0x9F, 0x9F), rewritten, "N/A"},  // for `signal_present` alone
        {signal(0, 1, 0x9F, 0x9F, 0x9F), only_read, "N/A"},
        {signal(0, 0), rewritten, "N/A"},  // for `signal_present` alone
        {signal(0, 1, 0, 0, 0), rewritten, "8 bpc"},
    };
    follow(member_of(0, depth), steps);
}

// The states of an input: not reported, link down, link up, lost, stable.
TEST_F(VideoStatus, FollowsTheStatesOfTheInput)
{
    for (const u8 port : {u8{0}, u8{1}}) {
        const char* type = port == 1 ? "DP" : "N/A";
        const auto follow_state = [&](const Action& action, const Accesses& cost, bool is_present,
                                      const char* signal_type) {
            follow(member_of(port, depth), {{action, cost, is_present ? "10 bpc" : "N/A"}});
            EXPECT_EQ(value_of("inputs.json", member_of(port, "signal_present")), is_present);
            EXPECT_EQ(value_of("inputs.json", member_of(port, "signal_type")), signal_type);
        };
        follow_state(signal(port, 0), rewritten, false, "N/A");  // not reported -> lost
        follow_state(signal(port, 0), only_read, false, "N/A");
        follow_state(signal(port, 1), rewritten, true, type);
        follow_state(link(port, 0), rewritten, false, "N/A");
        follow_state(signal(port, 1), no_access, false, "N/A");
        follow_state(signal(port, 0), no_access, false, "N/A");
        follow_state(link(port, 1), rewritten, false, type);
        follow_state(signal(port, 0), rewritten, false, "N/A");  // link up -> lost
        follow_state(signal(port, 1), rewritten, true, type);
        follow_state(signal(port, 0), rewritten, false, "N/A");  // stable -> lost
        link(port, 0)();
        link(port, 1)();
        follow_state(signal(port, 1), rewritten, true, type);  // link up -> stable
    }
}

TEST_F(VideoStatus, ALostSignalEmptiesTheInputAndNothingElse)
{
    const Json::Value seeded = document("inputs.json")["inputs"];
    const Json::Value full = filled(document("inputs.json"));
    for (const u8 port : {u8{0}, u8{1}}) {
        replace("inputs.json", full);
        EXPECT_EQ(cost_of(signal(port, 0)), rewritten);
        Json::Value emptied = full;
        Json::Value& video = emptied["inputs"][port]["video"] = seeded[port]["video"];
        video["connected"] = "left";
        video["hdcp"]["control"]["allowed_hdcp_version"] = "left";
        emptied["inputs"][port]["audio"] = seeded[port]["audio"];
        EXPECT_EQ(document("inputs.json"), emptied);
    }
}

TEST_F(VideoStatus, RebuildsADeletedDocumentFromTheReport)
{
    std::remove(inputs_document_path);
    EXPECT_EQ(cost_of(signal(1, 1, 0, 1, 2)), (Accesses{0, 1}));
    EXPECT_EQ(document("inputs.json"), parsed(R"({"inputs": [{"video": null}, {"video": {
        "signal_present": true, "signal_type": "DP",
        "color": {"color_space": "RGB", "color_depth": "10 bpc", "color_range": "FULL"}}}]})"));

    std::remove(inputs_document_path);
    EXPECT_EQ(cost_of(signal(1, 1, 0, 1, 2)), no_access);  // no change: no document
    EXPECT_EQ(text_of("inputs.json"), "");
}
