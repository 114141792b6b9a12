/// What the suites of the video inputs share: reports to send, and a look at what they cost.
#pragma once

#include <sstream>

#include <json/reader.h>

#include "tests/service.h"

constexpr Accesses no_access = {0, 0};
constexpr Accesses only_read = {1, 0};
constexpr Accesses rewritten = {1, 1};

constexpr VideoTimingFields timing_1080p60 = {
    0, 0, 148500000, 2200, 1920, 44, 148, 88, 67500, 1, 1125, 1080, 5, 36, 4, 60, 1,
};

inline Json::Value parsed(const std::string& text)
{
    Json::Value root;
    std::istringstream stream(text);
    stream >> root;
    return root;
}

/// The document with a word in place of each value that is neither array nor object.
inline Json::Value filled(Json::Value value)
{
    if (!value.isArray() && !value.isObject()) {
        return "left";
    }
    for (Json::Value& member : value) {
        member = filled(member);
    }
    return value;
}

class VideoTest : public ServiceTest {
protected:
    using u8 = std::uint8_t;

    template <typename Record>
    static Action report(std::uint32_t type, const Record& record)
    {
        return [type, record] { send_record(type, record); };
    }
    static Action link(u8 port, u8 is_connect, u8 is_hpd = 0)
    {
        return report(MSG_TYPE_LINK_STATUS, CmdDataLinkStatus{port, is_connect, is_hpd, 0});
    }
    static Action signal(u8 port, u8 is_stable)
    {
        CmdDataVideoStatus record = {};
        record.port = port;
        record.isStable = is_stable;
        return report(MSG_TYPE_VIDEO_STATUS, record);
    }
    static Action mode(u8 port, u8 mode)
    {
        return report(MSG_TYPE_HDMI_VIDEO_MODE, CmdDataHdmiVideoMode{port, mode, {}});
    }
    static Action hdcp(u8 port, u8 status, u8 is_encrypted = 0)
    {
        return report(MSG_TYPE_HDCP_STATUS, CmdDataHDCPStatus{port, is_encrypted, status, 0});
    }
    static Action timing(VideoTimingFields fields, u8 port = 0)
    {
        fields.port = port;
        return report(MSG_TYPE_VIDEO_TIMING, CmdDataVideoTiming{fields, 1, {}});
    }
    static Action text(std::uint32_t type, const std::string& text)
    {
        return [type, text] { send_text(type, text); };
    }

    static void replace(const std::string& name, const Json::Value& root)
    {
        write_document(name, root.toStyledString());
    }

    /// What `action` costs of `inputs.json`.
    Accesses cost_of(const Action& action) { return accesses_by("inputs.json", action); }

    struct Step {
        Action action;
        Accesses cost;
        Json::Value value;
    };
    /// Checks what each step costs, and this value of `inputs.json` behind it.
    void follow(const std::string& path, const std::vector<Step>& steps)
    {
        for (std::size_t number = 0; number < steps.size(); ++number) {
            SCOPED_TRACE("step " + std::to_string(number));
            EXPECT_EQ(cost_of(steps[number].action), steps[number].cost);
            EXPECT_EQ(value_of("inputs.json", path), steps[number].value);
        }
    }
};
