/// Timings: the test that they must pass, what they publish, and the driver's file that some
/// are read from.
#include <filesystem>

#include "store/documents.h"
#include "tests/table_test.h"

namespace fs = std::filesystem;

namespace {

/// The driver's file for the timing 1080p60.
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

std::string read_line(int port)
{
    return "refresh current play timing from videoip. port=" + std::to_string(port);
}

/// The driver's file with what the row puts in place of what.
std::string driver_file_of(const Json::Value& row)
{
    const std::string replaced = row["in_place_of"].asString();
    std::string file = driver_file;
    return file.replace(file.find(replaced), replaced.size(), row["stands"].asString());
}

/// Sets what 1080p60 publishes in `video` of an input.
void publish_1080p60(Json::Value& video)
{
    for (const Json::Value& row : rows_of("VideoTiming.IsPublishedForTheInputOfItsPort")) {
        video[row["member"].asString()] = row["value"];
    }
}

class VideoTiming : public TableTest {
protected:
    void SetUp() override
    {
        fs::remove_all(videoip_timing_path);
        TableTest::SetUp();
    }

    static void write_driver_file(const std::string& text)
    {
        write_file(videoip_timing_path, text);
    }

    /// Checks what a line of `send_line` costs, and that it has this logged alone.
    void expect(const std::string& line, const Accesses& cost, const std::string& logged)
    {
        EXPECT_EQ(cost_of([&] { expect_logged(logged, [&] { send_line(line); }); }), cost) << line;
    }
};

}  // namespace

PLAYED_TEST(VideoTiming, IsRefusedWhereItCannotBeASignal)

TEST_F(VideoTiming, IsPublishedWholeWhereOneFieldDiffers)
{
    const Json::Value full = filled(document("inputs.json"));
    Json::Value video;
    publish_1080p60(video);
    for (const Json::Value& row : rows_of("VideoTiming.IsPublishedWholeWhereOneFieldDiffers")) {
        const std::string report = "1080p60 " + row["field"].asString();
        SCOPED_TRACE(report);
        EXPECT_EQ(cost_of("1080p60"), rewritten);
        make_document("inputs.json", full);
        EXPECT_EQ(cost_of(report), rewritten);
        Json::Value expected = video["timing"];
        expected[row["member"].asString()] = row["value"];
        EXPECT_EQ(value_of("inputs.json", ".inputs[0].video.timing"), expected);
        EXPECT_EQ(cost_of(report), no_access);
    }
}

PLAYED_TEST(VideoTiming, IsPublishedWithItsRateWhateverItIsKnownFrom)

TEST_F(VideoTiming, IsPublishedForTheInputOfItsPort)
{
    Json::Value expected = filled(document("inputs.json"));
    make_document("inputs.json", expected);
    EXPECT_EQ(cost_of("1080p60 port=0"), rewritten);
    EXPECT_EQ(cost_of("1080p60 port=2"), no_access);
    EXPECT_EQ(cost_of("1080p60 port=255"), no_access);
    publish_1080p60(expected["inputs"][0]["video"]);
    EXPECT_EQ(document("inputs.json"), expected);

    write_driver_file(driver_file);
    expect("text video_start_working none", no_access, read_line(0));
    expect("text video_start_working 1abc", rewritten, read_line(1));
    expect("text video_start_working 1", no_access, read_line(1));
    publish_1080p60(expected["inputs"][1]["video"]);
    EXPECT_EQ(document("inputs.json"), expected);

    fs::remove(inputs_document.path);
    EXPECT_EQ(cost_of("1080p60 port=1 scan_mode=1"), created);
    expected = parsed(R"({"inputs": [{"video": null}, {"video": {}}]})");
    publish_1080p60(expected["inputs"][1]["video"]);
    expected["inputs"][1]["video"]["timing"]["scan"] = "Interlaced";
    EXPECT_EQ(document("inputs.json"), expected);
}

TEST_F(VideoTiming, IsDroppedWithoutASignal)
{
    write_driver_file(driver_file);
    play();
}

TEST_F(VideoTiming, IsReadFromWhateverTheDriverWrites)
{
    const auto expect_read = [this](const std::string& file, const std::string& fields) {
        SCOPED_TRACE(file);
        send_line("1080p60 pixel_clock=1");
        write_driver_file(file);
        expect("video_start_working 0", rewritten, read_line(0));
        // To be a repetition, the expected timing must be the one that was read.
        EXPECT_EQ(cost_of("1080p60 " + fields), no_access);
    };
    expect_read(junk + driver_file, "");
    expect_read(other_driver_file, "");
    // A line longer than the reader's buffer: its pieces count as lines.
    expect_read(driver_file + std::string(255, '.') + "Src Refresh Rate: [50]Hz\n",
                "v_sync_frequency_hz=50 h_sync_frequency_hz=56250");
    for (const Json::Value& row : rows_of("VideoTiming.IsReadFromWhateverTheDriverWrites")) {
        expect_read(driver_file_of(row), joined(row["gives"]));
    }
}

TEST_F(VideoTiming, OfTheDriverIsIgnoredWhereItIsIncompleteOrInvalid)
{
    const std::string failed = "fill_timing_from_videoip failed for current play port=0";
    const auto expect_ignored = [this](const std::string& line) {
        expect("video_start_working 0", no_access, line);
        EXPECT_EQ(cost_of("1080p60"), no_access);
    };
    send_line("1080p60");
    expect_ignored(failed);  // no file
    fs::create_directory(videoip_timing_path);
    expect_ignored(failed);
    fs::remove(videoip_timing_path);

    std::string long_line = driver_file;
    long_line.insert(long_line.find("Src Refresh"), std::string(254, '.'));
    for (const std::string& file : {std::string(), junk, long_line}) {
        SCOPED_TRACE(file);
        write_driver_file(file);
        expect_ignored(failed);
    }
    for (const Json::Value& row :
         rows_of("VideoTiming.OfTheDriverIsIgnoredWhereItIsIncompleteOrInvalid")) {
        SCOPED_TRACE(row["stands"].asString());
        write_driver_file(driver_file_of(row));
        expect_ignored(row["logs"].asString());
    }
}
