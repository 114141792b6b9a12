/// The state of the signal on a video input: its states, what a report publishes, and how the
/// loss of a signal empties the input.
#include "tests/table_test.h"

using VideoStatus = TableTest;

PLAYED_TEST(VideoStatus, ShowsEveryCodeOnBothInputs)
PLAYED_TEST(VideoStatus, RewritesTheDocumentOnlyForAChange)
PLAYED_TEST(VideoStatus, FollowsTheStatesOfTheInput)

TEST_F(VideoStatus, ALostSignalEmptiesTheInputAndNothingElse)
{
    const Json::Value seeded = document("inputs.json")["inputs"];
    const Json::Value full = filled(document("inputs.json"));
    for (const int port : {0, 1}) {
        make_document("inputs.json", full);
        EXPECT_EQ(cost_of("video_status port=" + std::to_string(port)), rewritten);
        Json::Value emptied = full;
        Json::Value& video = emptied["inputs"][port]["video"] = seeded[port]["video"];
        video["connected"] = "left";
        video["hdcp"]["control"]["allowed_hdcp_version"] = "left";
        emptied["inputs"][port]["audio"] = seeded[port]["audio"];
        EXPECT_EQ(document("inputs.json"), emptied);
    }
}
