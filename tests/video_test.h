/// What the suites share that report about the inputs: reports to send, and a look at what they
/// cost.
#pragma once

#include "tests/service.h"

constexpr VideoTimingFields timing_1080p60 = {
    0, 0, 148500000, 2200, 1920, 44, 148, 88, 67500, 1, 1125, 1080, 5, 36, 4, 60, 1,
};

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
    static Action signal(u8 port, u8 is_stable, u8 space = 1, u8 depth = 1, u8 range = 1)
    {
        return report(
            MSG_TYPE_VIDEO_STATUS,
            CmdDataVideoStatus{port, is_stable, 0, 0, 0, 0, 0, space, depth, 0, 0, range, {}});
    }
    static Action audio(u8 port, u8 is_stable, u8 coding, u8 frequency, u8 channels)
    {
        return report(
            MSG_TYPE_AUDIO_STATUS,
            CmdDataAudioStatus{port, 0, is_stable, 0, coding, frequency, 0, channels, 0, {}});
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
    static Action allow(const std::string& hdcp) { return text(MSG_TYPE_HDCP_VERSION, hdcp); }
    static Action uac(const std::string& control) { return text(MSG_TYPE_UAC_CONTROL, control); }

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
        int number = 0;
        for (const Step& step : steps) {
            SCOPED_TRACE(path + ", step " + std::to_string(++number));
            EXPECT_EQ(cost_of(step.action), step.cost);
            EXPECT_EQ(value_of("inputs.json", path), step.value);
        }
    }
};
