/// The audio of the video inputs and of the USB Audio Class port.
#include <tuple>

#include "tests/video_test.h"

namespace {

using Audio = VideoTest;

Json::Value shown(bool present, const char* format, const char* frequency, int channel)
{
    Json::Value audio;
    audio["connected"] = audio["signal_present"] = present;
    audio["format"] = format;
    audio["sample_frequency"] = frequency;
    audio["channel"] = channel;
    return audio;
}

const Json::Value no_audio = shown(false, "N/A", "N/A", 0);
const Json::Value uac_audio = shown(true, "PCM", "48 kHz", 2);

constexpr const char* hdmi_audio = ".inputs[0].audio";
constexpr const char* usb_c_audio = ".inputs[1].audio";

}  // namespace

TEST_F(Audio, ShowsEveryCode)
{
    const char* frequencies[] = {"32 kHz",    "44.1 kHz", "48 kHz",  "88.2 kHz", "96 kHz",
                                 "176.4 kHz", "192 kHz",  "768 kHz", "N/A"};
    u8 code = 0;
    for (const char* frequency : frequencies) {
        follow(usb_c_audio,
               {{audio(1, 1, 0, code++, 2), rewritten, shown(true, "LPCM", frequency, 2)}});
    }
    follow(hdmi_audio, {{audio(255, 1, 1, 255, 0), rewritten, shown(true, "Non-LPCM", "N/A", 0)},
                        {audio(0, 1, 200, 8, 0), only_read, shown(true, "Non-LPCM", "N/A", 0)}});
    EXPECT_EQ(value_of("inputs.json", ".inputs[2].audio"), no_audio);
    EXPECT_EQ(value_of("inputs.json", ".inputs[1].video.embedded_audio_present"), false);
}

TEST_F(Audio, WritesOnlyWhatDiffersFromTheDocument)
{
    const Action silence = audio(0, 0, 1, 3, 8);
    const Action playing = audio(0, 1, 0, 2, 2);
    const Action unused =  // fields that are only logged
        report(MSG_TYPE_AUDIO_STATUS, CmdDataAudioStatus{0, 9, 1, 9, 0, 2, 9, 2, 9, {}});
    const Json::Value played = shown(true, "LPCM", "48 kHz", 2);
    const std::vector<Step> steps = {
        {silence, only_read, no_audio},
        {playing, rewritten, played},
        {playing, only_read, played},
        {unused, only_read, played},
        {audio(0, 1, 0, 2, 3), rewritten, shown(true, "LPCM", "48 kHz", 3)},
        {silence, rewritten, no_audio},
        {link(0, 0), rewritten, no_audio},
        {playing, no_access, no_audio},
        {link(0, 1), rewritten, no_audio},
        {playing, rewritten, played},
    };
    follow(hdmi_audio, steps);
}

TEST_F(Audio, RebuildsTheDocument)
{
    write_document("inputs.json", "{");
    audio(1, 1, 0, 2, 2)();
    settle();
    Json::Value inputs = parsed(R"({"inputs": [{"audio": null}, {}]})");
    inputs["inputs"][1]["audio"] = shown(true, "LPCM", "48 kHz", 2);
    EXPECT_EQ(document("inputs.json"), inputs);

    for (const char* name : {"inputs.json", "outputs.json"}) {
        write_document(name, "");
    }
    Json::Value entry = parsed(R"({"port_type": "UAC", "index": 1})");
    entry["audio"] = no_audio;
    uac("0 1 0")();
    settle();
    EXPECT_EQ(value_of("outputs.json", ".outputs[0]"), entry);
    entry["control"]["enabled"] = true;
    EXPECT_EQ(value_of("inputs.json", ".inputs[0]"), entry);
    follow(hdmi_audio, {{uac("0 1 1"), rewritten, uac_audio}});
    EXPECT_EQ(value_of("outputs.json", ".outputs[0].audio"), shown(true, "N/A", "N/A", 0));
}

TEST_F(Audio, FollowsTheUacControl)
{
    const std::tuple<const char*, bool, bool> rows[] = {
        {"0 1 1", true, true},    {"0 1 0", true, false}, {"5 1 7", true, true},
        {"0 0 1", false, false},  {"0 2 1", false, true}, {"0 2 0", false, false},
        {"0 -1 -1", false, true}, {"1", false, false},    {"none", false, false},
    };
    for (const auto& [input, enabled, active] : rows) {
        SCOPED_TRACE(input);
        follow(".inputs[2].audio", {{uac(input), rewritten, active ? uac_audio : no_audio}});
        EXPECT_EQ(value_of("inputs.json", ".inputs[2].control.enabled"), enabled);
        EXPECT_EQ(value_of("outputs.json", ".outputs[0].audio"), shown(active, "PCM", "48 kHz", 2));
    }
    const Action again = uac("none");
    EXPECT_EQ(cost_of(again), rewritten);
    EXPECT_EQ(accesses_by("outputs.json", again), rewritten);
    EXPECT_EQ(value_of("inputs.json", hdmi_audio), no_audio);
}

TEST_F(Audio, FindsTheUacEntryByItsPortType)
{
    write_document("inputs.json", R"({"inputs": [7, null, {"port_type": ["UAC"]}, {"index": 1},
        {"port_type": "UAC", "audio": 3}, {"port_type": "UAC"}]})");
    follow(".inputs[4].audio", {{uac("0 1 1"), rewritten, uac_audio}});
    EXPECT_EQ(value_of("inputs.json", ".inputs").size(), 6U);
    EXPECT_FALSE(value_of("inputs.json", ".inputs[5]").isMember("audio"));
}
