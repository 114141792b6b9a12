/// Timings: the test that they must pass, what they publish, and the driver's file that some
/// are read from.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <tuple>
#include <utility>

#include "tests/table_test.h"

namespace fs = std::filesystem;

namespace {

using Timing = VideoTimingFields;
using Change = void (*)(Timing& timing);

constexpr Timing timing_1080p60 = {
    0, 0, 148500000, 2200, 1920, 44, 148, 88, 67500, 1, 1125, 1080, 5, 36, 4, 60, 1,
};

Timing changed(Change change)
{
    Timing timing = timing_1080p60;
    change(timing);
    return timing;
}

/// What `timing_1080p60` sets in `video`.
constexpr const char* published_1080p60 = R"({
    "active_resolution": "1920x1080", "total_resolution": "2200x1125",
    "refresh_rate_hz": 60.0, "embedded_audio_present": true,
    "timing": {
        "scan": "Progressive", "pixel_clock_hz": 148500000,
        "h_total_pixels": 2200, "h_active_pixels": 1920, "h_sync_pulse_width": 44,
        "h_sync_back_porch": 148, "h_sync_front_porch": 88, "h_sync_frequency_hz": 67500,
        "h_sync_polarity": "Positive",
        "v_total_pixels": 1125, "v_active_pixels": 1080, "v_sync_pulse_width": 5,
        "v_sync_back_porch": 36, "v_sync_front_porch": 4, "v_sync_frequency_hz": 60,
        "v_sync_polarity": "Positive"}})";

/// The driver's file for `timing_1080p60`.
const std::string driver_file =
    "Progressive HPos VPos\n"
    "Src Timing Table[0x1f]: Serial Number[0x2A] [1920]X[1080] [60]Hz\n"
    "\tPixel Rate: 148500KHz, Htotal: 2200, Vtotal: 1125\n"
    "\tHbp: 148, Vbp: 36, Hsw: 44, Vsw: 5\n"
    "Src Refresh Rate: [60]Hz\n";
/// The same in another order and without the last end of line, behind lines that it replaces.
const std::string other_driver_file =
    "Interlace HNeg VNeg\nSrc Timing Table[0x0]: Serial Number[0x0] [1280]X[720] [50]Hz\n"
    "Pixel Rate: 1KHz, Htotal: 1, Vtotal: 1\nHbp: 1, Vbp: 1, Hsw: 1, Vsw: 1\n"
    "Src Refresh Rate: [50]Hz\nSrc Refresh Rate: [60]Hz\n"
    "\tHbp: 148, Vbp: 36, Hsw: 44, Vsw: 5\n"
    "\tPixel Rate: 148500KHz, Htotal: 2200, Vtotal: 1125\n"
    "Src Timing Table[0x1f]: Serial Number[0x2A] [1920]X[1080] [60]Hz\n"
    "Progressive HPos VPos";
const std::string junk("\0\xFF[%s%n\x80\n\0\n", 11);

constexpr const char* rate_path = ".inputs[0].video.refresh_rate_hz";

std::string read_line(int port)
{
    return "refresh current play timing from videoip. port=" + std::to_string(port);
}

/// Sets what `timing_1080p60` publishes in `video` of an input.
void publish_1080p60(Json::Value& video)
{
    const Json::Value published = parsed(published_1080p60);
    for (const std::string& member : published.getMemberNames()) {
        video[member] = published[member];
    }
}

class VideoTiming : public TableTest {
protected:
    void SetUp() override
    {
        fs::remove_all(videoip_timing_path);
        TableTest::SetUp();
    }

    static void write_driver_file(const char* from, const std::string& to)
    {
        std::string file = driver_file;
        write_file(videoip_timing_path, file.replace(file.find(from), std::strlen(from), to));
    }

    static Action line(const std::string& words)
    {
        return [words] { send_line(words); };
    }
    static Action start(const std::string& port)
    {
        return line("text video_start_working " + port);
    }
    static Action timing(Timing fields, std::uint8_t port = 0)
    {
        fields.port = port;
        const CmdDataVideoTiming record = {fields, 1, {}};
        const std::string payload(reinterpret_cast<const char*>(&record), sizeof record);
        return [payload] { send_text(MSG_TYPE_VIDEO_TIMING, payload); };
    }

    /// Checks what `action` costs, and that it logs this line alone.
    void expect(const Action& action, const Accesses& cost, const std::string& line)
    {
        std::vector<std::string> lines;
        EXPECT_EQ(cost_of([&] { lines = logged_by(action); }), cost);
        EXPECT_EQ(lines, std::vector<std::string>{line});
    }
};

}  // namespace

TEST_F(VideoTiming, IsRefusedWhereItCannotBeASignal)
{
    // Neither the scan mode, nor the front porches, nor the polarities are looked at.
    // clang-format off
    const std::pair<bool, Timing> rows[] = {
        // Something is 0.
        {false, {3, 7, 0, 2200, 1920,    44, 148, 1,  67500, 7, 1125, 1080, 5,    36, 1,  60, 7}},
        {false, {3, 7, 1, 2200,    0,    44, 148, 1,  67500, 7, 1125, 1080, 5,    36, 1,  60, 7}},
        {false, {3, 7, 1, 2200, 1920,    44, 148, 1,  67500, 7, 1125,    0, 5,    36, 1,  60, 7}},
        {false, {3, 7, 1, 2200, 1920,    44, 148, 1,  67500, 7,    0,    0, 0,     0, 1,  60, 7}},
        // The blanking is below 0, 0, and 1.
        {false, {3, 7, 1, 1919, 1920,     0,   0, 1,  67500, 7, 1125, 1080, 5,    36, 1,  60, 7}},
        {false, {3, 7, 1, 1920, 1920,     0,   0, 1,  67500, 7, 1125, 1080, 5,    36, 1,  60, 7}},
        {true,  {3, 7, 1, 1921, 1920,     0,   0, 1,  67500, 7, 1125, 1080, 5,    36, 1,  60, 7}},
        {false, {3, 7, 1, 2200, 1920,    44, 148, 1,  67500, 7, 1079, 1080, 0,     0, 1,  60, 7}},
        {false, {3, 7, 1, 2200, 1920,    44, 148, 1,  67500, 7, 1080, 1080, 0,     0, 1,  60, 7}},
        // Sync pulse and back porch fill the blanking, go beyond it, and beyond 16 bits.
        {true,  {3, 7, 1, 2112, 1920,    44, 148, 1,  67500, 7, 1121, 1080, 5,    36, 1,  60, 7}},
        {false, {3, 7, 1, 2111, 1920,    44, 148, 1,  67500, 7, 1125, 1080, 5,    36, 1,  60, 7}},
        {false, {3, 7, 1, 2200, 1920, 65535, 148, 1,  67500, 7, 1125, 1080, 5,    36, 1,  60, 7}},
        {false, {3, 7, 1, 2200, 1920,    44, 148, 1,  67500, 7, 1120, 1080, 5,    36, 1,  60, 7}},
        {false, {3, 7, 1, 2200, 1920,    44, 148, 1,  67500, 7, 1125, 1080, 5, 65535, 1,  60, 7}},
        // The frame rate as given, and as worked out from the line rate.
        {false, {3, 7, 1, 2200, 1920,    44, 148, 1,  67500, 7, 1125, 1080, 5,    36, 1,   9, 7}},
        {true,  {3, 7, 1, 2200, 1920,    44, 148, 1,      1, 7, 1125, 1080, 5,    36, 1,  10, 7}},
        {true,  {3, 7, 1, 2200, 1920,    44, 148, 1,  67500, 7, 1125, 1080, 5,    36, 1, 240, 7}},
        {false, {3, 7, 1, 2200, 1920,    44, 148, 1,  67500, 7, 1125, 1080, 5,    36, 1, 241, 7}},
        {false, {3, 7, 1, 2200, 1920,    44, 148, 1,  11249, 7, 1125, 1080, 5,    36, 1,   0, 7}},
        {true,  {3, 7, 1, 2200, 1920,    44, 148, 1,  11250, 7, 1125, 1080, 5,    36, 1,   0, 7}},
        {true,  {3, 7, 1, 2200, 1920,    44, 148, 1, 270000, 7, 1125, 1080, 5,    36, 1,   0, 7}},
        {false, {3, 7, 1, 2200, 1920,    44, 148, 1, 270001, 7, 1125, 1080, 5,    36, 1,   0, 7}},
    };
    // clang-format on
    for (const auto& [is_valid, t] : rows) {
        char refusal[256];
        std::snprintf(refusal, sizeof refusal,
                      "Ignore invalid reported timing. port=3 current_play_port=1 pixel_clock=%u "
                      "h_total=%u h_active=%u v_total=%u v_active=%u v_freq=%u",
                      t.pixel_clock, t.h_total_pixels, t.h_active_pixels, t.v_total_pixels,
                      t.v_active_pixels, t.v_sync_frequency_hz);
        if (is_valid) {
            EXPECT_EQ(cost_of(timing(t, 3)), rewritten) << refusal;
        } else {
            expect(timing(t, 3), no_access, refusal);
        }
    }
}

TEST_F(VideoTiming, IsPublishedWholeWhereOneFieldDiffers)
{
    const std::tuple<Change, const char*, Json::Value> rows[] = {
        {[](Timing& t) { t.scan_mode = 1; }, "scan", "Interlaced"},
        {[](Timing& t) { t.scan_mode = 2; }, "scan", "N/A"},
        {[](Timing& t) { t.pixel_clock = 4294967295; }, "pixel_clock_hz", Json::Int64{4294967295}},
        {[](Timing& t) { t.h_total_pixels = 2201; }, "h_total_pixels", 2201},
        {[](Timing& t) { t.h_active_pixels = 1921; }, "h_active_pixels", 1921},
        {[](Timing& t) { t.h_sync_pulse_width = 45; }, "h_sync_pulse_width", 45},
        {[](Timing& t) { t.h_sync_back_porch = 0; }, "h_sync_back_porch", 0},
        {[](Timing& t) { t.h_sync_front_porch = 65535; }, "h_sync_front_porch", 65535},
        {[](Timing& t) { t.h_sync_frequency_hz = 4294967295; }, "h_sync_frequency_hz",
         Json::Int64{4294967295}},
        {[](Timing& t) { t.h_sync_polarity = 0; }, "h_sync_polarity", "Negative"},
        {[](Timing& t) { t.h_sync_polarity = 2; }, "h_sync_polarity", "N/A"},
        {[](Timing& t) { t.v_total_pixels = 1126; }, "v_total_pixels", 1126},
        {[](Timing& t) { t.v_active_pixels = 1081; }, "v_active_pixels", 1081},
        {[](Timing& t) { t.v_sync_pulse_width = 4; }, "v_sync_pulse_width", 4},
        {[](Timing& t) { t.v_sync_back_porch = 35; }, "v_sync_back_porch", 35},
        {[](Timing& t) { t.v_sync_front_porch = 0; }, "v_sync_front_porch", 0},
        {[](Timing& t) { t.v_sync_frequency_hz = 61; }, "v_sync_frequency_hz", 61},
        {[](Timing& t) { t.v_sync_polarity = 0; }, "v_sync_polarity", "Negative"},
        {[](Timing& t) { t.v_sync_polarity = 2; }, "v_sync_polarity", "N/A"},
    };
    const Json::Value full = filled(document("inputs.json"));
    for (const auto& [change, member, value] : rows) {
        SCOPED_TRACE(member);
        EXPECT_EQ(cost_of(timing(timing_1080p60)), rewritten);
        make_document("inputs.json", full);
        EXPECT_EQ(cost_of(timing(changed(change))), rewritten);
        Json::Value expected = parsed(published_1080p60)["timing"];
        expected[member] = value;
        EXPECT_EQ(value_of("inputs.json", ".inputs[0].video.timing"), expected);
        EXPECT_EQ(cost_of(timing(changed(change))), no_access);
    }
}

TEST_F(VideoTiming, IsPublishedWithItsRateWhateverItIsKnownFrom)
{
    const auto rates = [](std::uint16_t frames, std::uint32_t lines) {
        Timing rated = timing_1080p60;
        rated.v_sync_frequency_hz = frames;
        rated.h_sync_frequency_hz = lines;
        return timing(rated);
    };
    // Only the low byte of a polarity is remembered: such a timing differs from itself.
    const Action wide = timing(changed([](Timing& t) { t.v_sync_polarity = 0x0101; }));
    const std::pair<Action, double> rows[] = {
        {rates(0, 67770), 60.24}, {rates(0, 0), 0.0}, {wide, 60.0}, {wide, 60.0}};
    for (const auto& [action, rate] : rows) {
        EXPECT_EQ(cost_of(action), rewritten);
        EXPECT_EQ(value_of("inputs.json", rate_path), rate);
    }
    EXPECT_EQ(value_of("inputs.json", ".inputs[0].video.timing.v_sync_polarity"), "N/A");
}

TEST_F(VideoTiming, IsPublishedForTheInputOfItsPort)
{
    Json::Value expected = filled(document("inputs.json"));
    make_document("inputs.json", expected);
    EXPECT_EQ(cost_of(timing(timing_1080p60, 0)), rewritten);
    EXPECT_EQ(cost_of(timing(timing_1080p60, 2)), no_access);
    EXPECT_EQ(cost_of(timing(timing_1080p60, 255)), no_access);
    publish_1080p60(expected["inputs"][0]["video"]);
    EXPECT_EQ(document("inputs.json"), expected);

    write_driver_file("", "");
    expect(start("none"), no_access, read_line(0));
    expect(start("1abc"), rewritten, read_line(1));
    expect(start("1"), no_access, read_line(1));
    publish_1080p60(expected["inputs"][1]["video"]);
    EXPECT_EQ(document("inputs.json"), expected);

    fs::remove(inputs_document_path);
    EXPECT_EQ(cost_of(timing(changed([](Timing& t) { t.scan_mode = 1; }), 1)), (Accesses{0, 1}));
    expected = parsed(R"({"inputs": [{"video": null}, {"video": {}}]})");
    publish_1080p60(expected["inputs"][1]["video"]);
    expected["inputs"][1]["video"]["timing"]["scan"] = "Interlaced";
    EXPECT_EQ(document("inputs.json"), expected);
}

TEST_F(VideoTiming, IsDroppedWithoutASignal)
{
    write_driver_file("", "");
    const Action report = timing(timing_1080p60);
    const Action up = line("link_status isConnect=1");
    const Action down = line("link_status");
    const Action stable = line("video_status isStable=2");
    const Action lost = line("video_status");
    const std::tuple<Action, Accesses, Json::Value> steps[] = {
        {up, rewritten, 0},     {report, rewritten, 60.0},     {report, no_access, 60.0},
        {lost, rewritten, 0},   {report, no_access, 0},        {start("0"), no_access, 0},
        {stable, rewritten, 0}, {start("0"), rewritten, 60.0}, {report, no_access, 60.0},
        {lost, rewritten, 0},   {stable, rewritten, 0},        {report, rewritten, 60.0},
        {down, rewritten, 0},   {report, no_access, 0},        {start("0"), no_access, 0},
    };
    int number = 0;
    for (const auto& [action, cost, rate] : steps) {
        SCOPED_TRACE("step " + std::to_string(++number));
        EXPECT_EQ(cost_of(action), cost);
        EXPECT_EQ(value_of("inputs.json", rate_path), rate);
    }
}

TEST_F(VideoTiming, IsReadFromWhateverTheDriverWrites)
{
    const Change same = [](Timing&) {};
    const Change no_front_porch = [](Timing& t) {
        t.h_sync_front_porch = t.v_sync_front_porch = 0;
    };
    const std::tuple<const char*, std::string, Change> rows[] = {
        {"", junk, same},
        {driver_file.c_str(), other_driver_file, same},
        // White space, and what stands behind the last number.
        {"\tPixel Rate: 148500KHz, Htotal: ", "Pixel\t Rate:148500KHz,Htotal:", same},
        {"\tHbp: 148, Vbp", " \t Hbp: \t148,  Vbp", same},
        {"] [60]Hz", "", same},
        {"Rate: [60]Hz", "Rate:[60", same},
        // Words: none, several in a line, both of a kind, and such as are not looked at.
        {"Progressive HPos VPos", "", [](Timing& t) { t.h_sync_polarity = t.v_sync_polarity = 0; }},
        {"Progressive HPos VPos", "Interlace HNeg VNeg\nProgressive Interlace HNeg HPos VNeg VPos",
         same},
        {"Progressive HPos VPos", "Progressive,HNeg,VPos\nInterlaced",
         [](Timing& t) { t.scan_mode = 1, t.h_sync_polarity = 0; }},
        {"1080] [60]Hz", "1080] Interlace HNeg VNeg", same},
        {"Vtotal: 1125", "Vtotal: 1125 Interlace HNeg VNeg", same},
        {"Vsw: 5", "Vsw: 5 Interlace HNeg VNeg", same},
        {"Rate: [60]Hz", "Rate: [60]Hz Interlace", [](Timing& t) { t.scan_mode = 1; }},
        // Numbers: 0, a blanking that is filled, more than 16 bits, products of more than 32.
        {"Rate: [60]Hz", "Rate: [0]Hz",
         [](Timing& t) { t.v_sync_frequency_hz = 0, t.h_sync_frequency_hz = 0; }},
        {"Hbp: 148, Vbp: 36", "Hbp: 236, Vbp: 40",
         [](Timing& t) {
             t.h_sync_back_porch = 236, t.v_sync_back_porch = 40;
             t.h_sync_front_porch = t.v_sync_front_porch = 0;
         }},
        {"[1920]X[1080]", "[67456]X[66616]", no_front_porch},
        {"148, Vbp: 36, Hsw: 44", "65684, Vbp: 65572, Hsw: 65580", no_front_porch},
        {"148500KHz, Htotal: 2200, Vtotal: 1125", "4443467KHz, Htotal: 67736, Vtotal: 66661",
         [](Timing& t) { t.pixel_clock = 148499704, t.h_sync_frequency_hz = 3999660; }},
        {"Rate: [60]Hz", "Rate: [65596]Hz", [](Timing& t) { t.h_sync_frequency_hz = 73795500; }},
        // A line longer than the reader's buffer: its pieces count as lines.
        {"Rate: [60]Hz", "Rate: [60]Hz\n" + std::string(255, '.') + "Src Refresh Rate: [50]Hz",
         [](Timing& t) { t.v_sync_frequency_hz = 50, t.h_sync_frequency_hz = 56250; }},
    };
    for (const auto& [from, to, change] : rows) {
        SCOPED_TRACE(from + (" -> " + to));
        timing(changed([](Timing& t) { t.pixel_clock = 1; }))();
        write_driver_file(from, to);
        expect(start("0"), rewritten, read_line(0));
        // To be a repetition, the expected timing must be the one that was read.
        EXPECT_EQ(cost_of(timing(changed(change))), no_access);
    }
}

TEST_F(VideoTiming, OfTheDriverIsIgnoredWhereItIsIncompleteOrInvalid)
{
    const std::string failed = "fill_timing_from_videoip failed for current play port=0";
    const std::string invalid = "videoip timing is invalid for current play port=0";
    const auto expect_ignored = [&](const std::string& line) {
        expect(start("0"), no_access, line);
        EXPECT_EQ(cost_of(timing(timing_1080p60)), no_access);
    };
    timing(timing_1080p60)();
    expect_ignored(failed);  // no file
    fs::create_directory(videoip_timing_path);
    expect_ignored(failed);
    fs::remove(videoip_timing_path);

    // Of the bounds of what is valid, the reports have shown the rest.
    const std::tuple<const char*, std::string, const std::string&> rows[] = {
        {driver_file.c_str(), "", failed},
        {driver_file.c_str(), junk, failed},
        {"[1920]X[1080]", "[1920]", failed},
        {", Vtotal: 1125", "", failed},
        {"Vsw: 5", "Vsw: ", failed},
        {"Src Refresh", "Refresh", failed},
        {"Src Refresh", std::string(254, '.') + "Src Refresh", failed},
        {"148500KHz", "0KHz", invalid},
        {"Vbp: 36", "Vbp: 41", invalid},
        {"Rate: [60]", "Rate: [241]", invalid},
    };
    for (const auto& [from, to, line] : rows) {
        SCOPED_TRACE(from + (" -> " + to));
        write_driver_file(from, to);
        expect_ignored(line);
    }
}
