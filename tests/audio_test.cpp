/// The audio of the video inputs and of the USB Audio Class port.
#include "tests/service.h"

namespace {

class Audio : public ServiceTest {
protected:
    static void report(const CmdDataAudioStatus& record)
    {
        send_record(MSG_TYPE_AUDIO_STATUS, record);
    }
    static void report_link(std::uint8_t port, std::uint8_t is_connect)
    {
        send_record(MSG_TYPE_LINK_STATUS, CmdDataLinkStatus{port, is_connect, 0, 0});
    }
    static void control_uac(const std::string& text) { send_text(MSG_TYPE_UAC_CONTROL, text); }
};

Json::Value audio(bool present, const char* format, const char* frequency, int channel)
{
    Json::Value audio;
    audio["connected"] = present;
    audio["signal_present"] = present;
    audio["format"] = format;
    audio["sample_frequency"] = frequency;
    audio["channel"] = channel;
    return audio;
}

const Json::Value no_audio = audio(false, "N/A", "N/A", 0);
const Json::Value uac_audio = audio(true, "PCM", "48 kHz", 2);

CmdDataAudioStatus stable(std::uint8_t port, std::uint8_t coding, std::uint8_t frequency,
                          std::uint8_t channels)
{
    CmdDataAudioStatus record = {};
    record.port = port;
    record.isStable = 1;
    record.audioCoding = coding;
    record.sampleFreq = frequency;
    record.channels = channels;
    return record;
}

}  // namespace

TEST_F(Audio, ShowsEveryCode)
{
    const char* frequencies[] = {"32 kHz",    "44.1 kHz", "48 kHz",  "88.2 kHz", "96 kHz",
                                 "176.4 kHz", "192 kHz",  "768 kHz", "N/A"};
    std::uint8_t code = 0;
    for (const char* frequency : frequencies) {
        report(stable(1, 0, code++, 2));
        settle();
        EXPECT_EQ(value_of("inputs.json", ".inputs[1].audio"), audio(true, "LPCM", frequency, 2));
    }
    for (const auto& [coding, format] : {std::pair{1, "Non-LPCM"}, {200, "Non-LPCM"}}) {
        report(stable(255, static_cast<std::uint8_t>(coding), 255, 0));
        settle();
        EXPECT_EQ(value_of("inputs.json", ".inputs[0].audio"), audio(true, format, "N/A", 0));
    }
    EXPECT_EQ(value_of("inputs.json", ".inputs[2].audio"), no_audio);
    EXPECT_EQ(value_of("inputs.json", ".inputs[1].video.embedded_audio_present"), false);
}

TEST_F(Audio, WritesOnlyWhatDiffersFromTheDocument)
{
    CmdDataAudioStatus silent = stable(0, 1, 3, 8);
    silent.isStable = 0;
    const CmdDataAudioStatus playing = stable(0, 0, 2, 2);
    CmdDataAudioStatus unused = playing;
    unused.fromPort = unused.isMute = unused.sampleDepth = unused.audType = 9;
    const struct {
        const char* what;
        CmdDataAudioStatus record;
        int writes;
    } rows[] = {
        {"silence over the seed", silent, 0},
        {"audio", playing, 1},
        {"the same", playing, 0},
        {"fields that are only logged", unused, 0},
        {"another channel", stable(0, 0, 2, 3), 1},
        {"silence", silent, 1},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(accesses_by("inputs.json", [&] { report(row.record); }),
                  (Accesses{1, row.writes}))
            << row.what;
    }
    EXPECT_EQ(value_of("inputs.json", ".inputs[0].audio"), no_audio);

    report_link(0, 0);
    settle();
    EXPECT_EQ(accesses_by("inputs.json", [&] { report(playing); }), (Accesses{0, 0}));
    report_link(0, 1);
    settle();
    EXPECT_EQ(accesses_by("inputs.json", [&] { report(playing); }), (Accesses{1, 1}));
    EXPECT_EQ(value_of("inputs.json", ".inputs[0].audio"), audio(true, "LPCM", "48 kHz", 2));
}

TEST_F(Audio, RebuildsTheDocument)
{
    write_document("inputs.json", "{");
    report(stable(1, 0, 2, 2));
    settle();
    EXPECT_EQ(value_of("inputs.json", ".inputs").size(), 2U);
    EXPECT_TRUE(value_of("inputs.json", ".inputs[0]").isMember("audio"));
    EXPECT_TRUE(value_of("inputs.json", ".inputs[0].audio").isNull());
    EXPECT_EQ(value_of("inputs.json", ".inputs[1].audio"), audio(true, "LPCM", "48 kHz", 2));

    for (const char* name : {"inputs.json", "outputs.json"}) {
        write_document(name, "");
    }
    control_uac("0 1 0");
    settle();
    EXPECT_EQ(value_of("inputs.json", ".inputs[0].port_type"), "UAC");
    EXPECT_EQ(value_of("inputs.json", ".inputs[0].control.enabled"), true);
    EXPECT_EQ(value_of("outputs.json", ".outputs[0].index"), 1);
    EXPECT_EQ(value_of("outputs.json", ".outputs[0].audio"), no_audio);
    control_uac("0 1 1");
    settle();
    EXPECT_EQ(value_of("inputs.json", ".inputs[0].audio"), uac_audio);
    EXPECT_EQ(value_of("outputs.json", ".outputs[0].audio"), audio(true, "N/A", "N/A", 0));
}

TEST_F(Audio, FollowsTheUacControl)
{
    const struct {
        const char* text;
        bool enabled;
        bool active;
    } rows[] = {
        {"0 1 1", true, true},    {"0 1 0", true, false}, {"5 1 7", true, true},
        {"0 0 1", false, false},  {"0 2 1", false, true}, {"0 2 0", false, false},
        {"0 -1 -1", false, true}, {"1", false, false},    {"none", false, false},
        {"", false, false},
    };
    for (const auto& row : rows) {
        control_uac(row.text);
        settle();
        EXPECT_EQ(value_of("inputs.json", ".inputs[2].control.enabled"), row.enabled) << row.text;
        EXPECT_EQ(value_of("inputs.json", ".inputs[2].audio"), row.active ? uac_audio : no_audio)
            << row.text;
        EXPECT_EQ(value_of("outputs.json", ".outputs[0].audio"),
                  audio(row.active, "PCM", "48 kHz", 2))
            << row.text;
    }
    for (const char* name : {"inputs.json", "outputs.json"}) {
        EXPECT_EQ(accesses_by(name, [] { control_uac("0 1 1"), control_uac("0 1 1"); }),
                  (Accesses{2, 2}));
    }
    EXPECT_EQ(value_of("inputs.json", ".inputs[0].audio"), no_audio);
}

TEST_F(Audio, FindsTheUacEntryByItsPortType)
{
    write_document("inputs.json", R"({"inputs": [7, null, {"port_type": ["UAC"]}, {"index": 1},
        {"port_type": "UAC", "audio": 3}, {"port_type": "UAC"}]})");
    control_uac("0 1 1");
    settle();
    EXPECT_EQ(value_of("inputs.json", ".inputs").size(), 6U);
    EXPECT_EQ(value_of("inputs.json", ".inputs[4].audio"), uac_audio);
    EXPECT_FALSE(value_of("inputs.json", ".inputs[5]").isMember("audio"));
}
