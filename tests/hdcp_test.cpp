/// HDCP: the version that a signal uses, which comes and goes with it, and the version that an
/// input allows, which nothing takes back.
#include "tests/video_test.h"

namespace {

constexpr const char* active = ".inputs[0].video.hdcp.active_hdcp_version";
constexpr const char* allowed = ".inputs[0].video.hdcp.control.allowed_hdcp_version";
constexpr const char* usb_c_active = ".inputs[1].video.hdcp.active_hdcp_version";
constexpr const char* usb_c_allowed = ".inputs[1].video.hdcp.control.allowed_hdcp_version";

using Hdcp = VideoTest;

}  // namespace

TEST_F(Hdcp, PublishesEachChangeAlone)
{
    Json::Value expected = filled(document("inputs.json"));
    replace("inputs.json", expected);
    follow(active, {{hdcp(0, 0, 1), rewritten, "None"},
                    {hdcp(0, 0, 0), only_read, "None"},
                    {hdcp(0, 1, 0), rewritten, "HDCP 1.4"},
                    {hdcp(0, 1, 1), only_read, "HDCP 1.4"},
                    {hdcp(0, 3), rewritten, "None"},
                    {hdcp(2, 2), rewritten, "HDCP 2.2"},
                    {hdcp(255, 255), rewritten, "None"}});
    follow(usb_c_active, {{hdcp(1, 2), rewritten, "HDCP 2.2"}});
    follow(allowed, {{allow("0 2"), rewritten, "HDCP 2.2"},
                     {allow("0 3"), only_read, "HDCP 2.2"},
                     {allow("0 0"), rewritten, "Off"},
                     {allow("0 -1"), rewritten, "HDCP 2.2"},
                     {allow("2 1"), rewritten, "HDCP 1.4"},
                     {allow(""), rewritten, "Off"}});
    follow(usb_c_allowed, {{allow("1 1"), rewritten, "HDCP 1.4"}, {allow("1"), rewritten, "Off"}});
    Json::Path(active).make(expected) = "None";
    Json::Path(usb_c_active).make(expected) = "HDCP 2.2";
    Json::Path(allowed).make(expected) = "Off";
    Json::Path(usb_c_allowed).make(expected) = "Off";
    EXPECT_EQ(document("inputs.json"), expected);
}

TEST_F(Hdcp, TheActiveVersionGoesWithTheSignalAndTheAllowedOneStays)
{
    const std::vector<Step> active_steps = {
        {link(0, 0), rewritten, "None"},       {hdcp(0, 2), no_access, "None"},
        {allow("0 1"), rewritten, "None"},     {link(0, 1), rewritten, "None"},
        {hdcp(0, 2), rewritten, "HDCP 2.2"},   {signal(0, 0), rewritten, "None"},
        {hdcp(0, 2), rewritten, "HDCP 2.2"},  // also without a signal
        {signal(0, 0), only_read, "HDCP 2.2"}, {link(0, 0), rewritten, "None"},
        {allow("0 1"), only_read, "None"},  // not taken back meanwhile
    };
    follow(active, active_steps);
    EXPECT_EQ(value_of("inputs.json", allowed), "HDCP 1.4");
}

TEST_F(Hdcp, RebuildsADocumentThatDoesNotParse)
{
    write_document("inputs.json", "{\"inputs\": [");
    hdcp(1, 0)();
    settle();
    EXPECT_EQ(document("inputs.json"), parsed(R"({"inputs": [{"video": null},
                                    {"video": {"hdcp": {"active_hdcp_version": "None"}}}]})"));
}
