/// HDMI and DVI: the signal type of the HDMI input, and what takes it back.
#include "tests/video_test.h"

namespace {

using HdmiVideoMode = VideoTest;

constexpr const char* path = ".inputs[0].video.signal_type";

}  // namespace

TEST_F(HdmiVideoMode, PublishesEachChangeOfTheModeOnPort0Alone)
{
    Json::Value expected = filled(document("inputs.json"));
    replace("inputs.json", expected);
    const std::vector<Step> steps = {
        {mode(0, 0x9F), no_access, "left"},  // as good as nothing reported
        {mode(0, 1), rewritten, "HDMI"},    {mode(0, 1), no_access, "HDMI"},
        {mode(1, 2), no_access, "HDMI"},    {mode(2, 2), no_access, "HDMI"},
        {mode(255, 2), no_access, "HDMI"},  {mode(0, 2), rewritten, "DVI"},
        {mode(0, 3), rewritten, "N/A"},     {mode(0, 3), no_access, "N/A"},
        {mode(0, 4), rewritten, "N/A"},     {mode(0, 1), rewritten, "HDMI"},
    };
    follow(path, steps);
    Json::Path(path).make(expected) = "HDMI";
    EXPECT_EQ(document("inputs.json"), expected);
}

TEST_F(HdmiVideoMode, IsTakenBackByALostSignalAndByTheLink)
{
    const std::vector<Step> steps = {
        {mode(0, 1), rewritten, "HDMI"},   {link(0, 1), rewritten, "N/A"},
        {mode(0, 0), no_access, "N/A"},    {mode(0, 1), rewritten, "HDMI"},
        {signal(0, 0), rewritten, "N/A"},  {mode(0, 0), no_access, "N/A"},
        {mode(0, 1), rewritten, "HDMI"},   {signal(0, 0), rewritten, "N/A"},
        {signal(0, 0), only_read, "N/A"},  {mode(0, 1), rewritten, "HDMI"},
        {signal(0, 1), rewritten, "HDMI"}, {link(0, 0), rewritten, "N/A"},
        {mode(0, 1), no_access, "N/A"},    {link(0, 1), rewritten, "N/A"},
        {mode(0, 1), rewritten, "HDMI"},
    };
    follow(path, steps);
}
