/// The road of a datagram: what is taken in, looked up, logged and handed on, and what is
/// dropped.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>

#include "store/documents.h"
#include "tests/table_test.h"

namespace {

using Lines = std::vector<std::string>;

class MessageRoad : public TableTest {
protected:
    /// Has the dispatch thread stand still in a rewrite of `power.json`, as a reader's lock does.
    void hold_dispatch()
    {
        reader_ = open(power_document.path, O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(flock(reader_, LOCK_SH), 0);
        send_text(MSG_TYPE_POWER_STATUS, "0");
        wait_until("the rewrite",
                   [] { return std::filesystem::file_size(power_document.path) == 0; });
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

}  // namespace

PLAYED_TEST(MessageRoad, LogsEveryFieldOfEveryRecord)

TEST_F(MessageRoad, ReadsTheNumbersOfEveryText)
{
    for (const Json::Value& row : rows_of("MessageRoad.ReadsTheNumbersOfEveryText")) {
        const std::string text = row["text"].asString();
        SCOPED_TRACE(text);
        const auto length = static_cast<std::uint32_t>(text.size());
        for (const std::uint32_t announced : {length, 1U, 5000U}) {  // the length selects nothing
            expect_logged(row["logs"], [&] { send(row["type"].asUInt(), announced, text); });
        }
    }
    expect_logged("missing current play port for video start working message",
                  [] { send(18, 0, "1"); });
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
    // An Ethernet status has any length.
    expect_logged("Ethernet status received", [] { send_text(6, std::string(300, '\xA1')); });
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
