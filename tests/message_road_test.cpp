/// The road of a datagram: what is taken in, looked up, logged and handed on, and what is
/// dropped.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <numeric>
#include <tuple>

#include "tests/table_test.h"

namespace {

using Lines = std::vector<std::string>;

class MessageRoad : public ServiceTest {
protected:
    /// Has the dispatch thread stand still in a rewrite of `power.json`, as a reader's lock does.
    void hold_dispatch()
    {
        reader_ = open(power_document_path, O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(flock(reader_, LOCK_SH), 0);
        send_text(MSG_TYPE_POWER_STATUS, "0");
        wait_until("the rewrite",
                   [] { return std::filesystem::file_size(power_document_path) == 0; });
    }

    void release_dispatch() const { close(reader_); }

    /// Sends `count` messages of unknown types, from `type` on; gives the lines due for them.
    static Lines send_unknown(std::uint32_t type, std::uint32_t count)
    {
        Lines lines;
        for (std::uint32_t last = type + count; type < last; ++type) {
            send(type, 0);
            lines.push_back(unknown(type, 0));
        }
        return lines;
    }

    static std::string unknown(std::uint32_t type, std::uint32_t length)
    {
        return "Unknown message type " + std::to_string(type) + " or length " +
               std::to_string(length);
    }

    static std::string overflow(int dropped)
    {
        return "Message queue overflow, dropped=" + std::to_string(dropped) + ", queue_size=128";
    }

private:
    int reader_ = -1;
};

/// Bytes 0xA1, 0xA2 and so on: each field of a record has a value of its own.
std::string distinct_bytes(std::size_t size)
{
    std::string bytes(size, '\0');
    std::iota(bytes.begin(), bytes.end(), '\xA1');
    return bytes;
}

/// A reported timing that is valid; all its fields differ.
std::string distinct_timing()
{
    CmdDataVideoTiming message = {};
    message.timing = {7,  2,    148500000, 2200, 1920, 44, 148, 88, 67500,
                      11, 1125, 1080,      5,    36,   4,  60,  13};
    message.current_play_port = 9;
    return {reinterpret_cast<const char*>(&message), sizeof message};
}

std::string typec_info()
{
    std::string bytes = distinct_bytes(52);
    return bytes.replace(22, 22, "Maker & Co., 22 bytes.");
}

}  // namespace

TEST_F(MessageRoad, LogsEveryFieldOfEveryRecord)
{
    const std::tuple<std::uint32_t, std::string, const char*> rows[] = {
        {1, distinct_bytes(16),
         "CmdDataVideoStatus v-port=161, isStable=162, isMute=163, hactive=42661, vactive=43175, "
         "frameRate=169, colorspace=170, deepcolor=171, aspectRatio=172, "
         "interlaced=173,color_range=174"},
        {5, distinct_bytes(12),
         "CmdDataAudioStatus a->port=161,a->fromPort=162,a->isStable=163,a->isMute=164,"
         "a->audioCoding=165,a->sampleFreq=166,a->sampleDepth=167,a->channels=168,"
         "a->audType=169"},
        {2, distinct_bytes(4), "CmdDataLinkStatus l-port=161, isConnect=162, isHpd=163"},
        {6, "", "Ethernet status received"},
        {6, distinct_bytes(300), "Ethernet status received"},
        {4, distinct_timing(),
         "CmdDataVideoTiming l-port=7, current_play_port=9, scan_mode=2, pixel_clock=148500000, "
         "h_total_pixels=2200, h_active_pixels=1920, h_sync_pulse_width=44, "
         "h_sync_back_porch=148, h_sync_front_porch=88, h_sync_frequency_hz=67500, "
         "h_sync_polarity=11, v_total_pixels=1125, v_active_pixels=1080, v_sync_pulse_width=5, "
         "v_sync_back_porch=36, v_sync_front_porch=4, v_sync_frequency_hz=60, "
         "v_sync_polarity=13"},
        {3, distinct_bytes(4), "CmdDataHDCPStatus h-port=161, isEncrypted=162, status=163"},
        {17, distinct_bytes(4), "CmdDataHdmiVideoMode port=161, mode=162"},
        {7, typec_info(),
         "TypeC_Info ChargingState=161, ChargingMode=162, Charging_mV=2829559461, "
         "Charging_mA=2896931497, Power_Role=173, Data_Role=174, Plug_Orientation=175, "
         "Remote_DpMode_Support=176, DpMode_Active=177, PeerDeviceVID=0xB4B3, "
         "PeerDevicePID=0xB6B5, PeerDeviceMFT_String=Maker & Co., 22 bytes., "
         "PinAssignment=-791687475, RemotePdSupport=209, RemotePdRevision=210"},
        {18, "0", "fill_timing_from_videoip failed for current play port=0"},
    };
    for (const auto& row : rows) {
        const auto send_row = [&row] { send_text(std::get<0>(row), std::get<1>(row)); };
        EXPECT_EQ(logged_by(send_row), Lines{std::get<2>(row)});
    }
}

TEST_F(MessageRoad, ReadsTheNumbersOfEveryText)
{
    for (const Json::Value& row : rows_of("MessageRoad.ReadsTheNumbersOfEveryText")) {
        const std::string text = row["text"].asString();
        Lines logged;
        for (const Json::Value& line : row["logs"]) {
            logged.push_back(line.asString());
        }
        const auto length = static_cast<std::uint32_t>(text.size());
        for (const std::uint32_t announced : {length, 1U, 5000U}) {  // the length selects nothing
            EXPECT_EQ(logged_by([&] { send(row["type"].asUInt(), announced, text); }), logged)
                << text;
        }
    }
    EXPECT_EQ(logged_by([] { send(18, 0, "1"); }),
              Lines{"missing current play port for video start working message"});
}

TEST_F(MessageRoad, KnowsARecordByTypeAndLength)
{
    const MessageHeader rows[] = {{0, 0},  {13, 1}, {19, 4}, {1, 15}, {1, 17}, {2, 5},
                                  {2, 0},  {3, 5},  {4, 36}, {5, 11}, {7, 48}, {7, 53},
                                  {17, 2}, {17, 5}, {1, 4},  {2, 16}};
    for (const MessageHeader& row : rows) {
        EXPECT_EQ(logged_by([&row] { send(row.type, row.length, std::string(60, 1)); }),
                  Lines{unknown(row.type, row.length)});
    }
    // Both are printed as signed numbers.
    EXPECT_EQ(logged_by([] { send(0x80000000, 0xFFFFFFFF); }),
              Lines{"Unknown message type -2147483648 or length -1"});
    EXPECT_EQ(events.take_names(), Lines{});
}

TEST_F(MessageRoad, TakesDatagramsOfAnyLength)
{
    EXPECT_EQ(logged_by([] { send(""); }), Lines{});
    const std::string header("\x2A\0\0\0\x05\0\0\0", 8);
    for (std::size_t size = 1; size < 8; ++size) {  // what they do is not defined
        send(header.substr(0, size));
    }
    send(1, 16);  // records that are announced and don't come
    send(7, 52, "short");
    settle();

    // Of a text as of all else, the first 1,023 bytes of the datagram count.
    const std::string text = std::string(1010, ' ') + "12345" + std::string(3000, '6');
    for (const std::size_t size : {1022U, 1023U, 1024U, 1025U, 4000U}) {
        EXPECT_EQ(logged_by([&] { send(8, 1, text.substr(0, size - 8)); }),
                  Lines{std::string("Power status message received Power status=1234") +
                        (size > 1022 ? "5" : "")})
            << size;
    }
}

// What the ring holds stays, what comes is dropped, and every hundredth drop is told from the
// first on.
TEST_F(MessageRoad, KeepsTheFirst128MessagesAndDropsTheRest)
{
    hold_dispatch();
    Lines expected = send_unknown(5000, 128);
    send_unknown(6000, 1);
    wait_logged(overflow(1));
    send_unknown(6001, 100);
    wait_logged(overflow(101));
    release_dispatch();
    wait_logged(expected.back());
    expected.insert(expected.begin(), {overflow(1), overflow(101)});
    Lines logged = log_messages();
    EXPECT_EQ(Lines(logged.begin() + 1, logged.end()), expected);
    EXPECT_EQ(value_of("power.json", ".power.power_source"), "PoE");

    // The slots are used again, and the count goes on.
    hold_dispatch();
    expected = send_unknown(7000, 128);
    send_unknown(8000, 100);
    wait_logged(overflow(201));
    release_dispatch();
    wait_logged(expected.back());
    expected.insert(expected.begin(), overflow(201));
    logged = log_messages();
    EXPECT_EQ(Lines(logged.end() - 129, logged.end()), expected);
    settle();
}
