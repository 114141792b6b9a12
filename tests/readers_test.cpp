/// Readers of a document that is rewritten back to back: what each way of reading finds, and
/// that the one that the manual recommends finds nothing but whole documents.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

#include <json/reader.h>

#include "store/documents.h"
#include "tests/service.h"

namespace {

enum Found { whole, empty, partial, mixed, found_count };

class Readers : public ServiceTest {
protected:
    void SetUp() override
    {
        ServiceTest::SetUp();
        send_line("video_status isStable=1");
        for (int number : {0, 1}) {
            send_timing(number);
            settle();
            states_[number] = value_of("inputs.json", ".inputs[0].video");
        }
    }

    /// Two timings that differ in all fields but one.
    static void send_timing(int number)
    {
        send_line(number == 0 ? "1080p60"
                              : "video_timing scan_mode=1 pixel_clock=27000000 h_total_pixels=858 "
                                "h_active_pixels=720 h_sync_pulse_width=62 h_sync_back_porch=60 "
                                "h_sync_front_porch=16 h_sync_frequency_hz=31469 h_sync_polarity=0 "
                                "v_total_pixels=525 v_active_pixels=480 v_sync_pulse_width=6 "
                                "v_sync_back_porch=30 v_sync_front_porch=9 v_sync_frequency_hz=30 "
                                "v_sync_polarity=0");
    }

    Found judge(const char* text, ssize_t size)
    {
        static const std::unique_ptr<Json::CharReader> parser(
            Json::CharReaderBuilder().newCharReader());
        Json::Value root;
        if (size <= 0) {
            return empty;
        }
        if (!parser->parse(text, text + size, &root, nullptr)) {
            return partial;
        }
        const Json::Value& video = root["inputs"][0]["video"];
        return video == states_[0] || video == states_[1] ? whole : mixed;
    }

    Found read_once(bool locks)
    {
        char text[8192];
        const int descriptor = open(inputs_document.path, O_RDONLY | O_CLOEXEC);
        if (locks) {
            flock(descriptor, LOCK_SH);
        }
        const ssize_t size = read(descriptor, text, sizeof text);
        close(descriptor);
        return judge(text, size);
    }

    Found read_until_whole(int& repetitions)
    {
        Found found = whole;
        while ((found = read_once(true)) == empty || found == partial) {
            ++repetitions;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return found;
    }

    Json::Value states_[2];
};

}  // namespace

TEST_F(Readers, WhoFollowTheManualGetWholeDocumentsAlone)
{
    std::atomic<bool> is_over = false;
    std::thread writer([&is_over] {
        for (unsigned number = 0; !is_over; ++number) {
            send_timing(static_cast<int>(number % 2));
            if (number % 16 == 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
    });
    const int reads = 5000 * load_factor();
    int unlocked[found_count] = {};
    int locked[found_count] = {};
    int repeated[found_count] = {};
    int repetitions = 0;
    // One after the other: who holds the lock keeps the writer at the emptied document.
    for (int i = 0; i < reads; ++i) {
        ++unlocked[read_once(false)];
    }
    for (int i = 0; i < reads; ++i) {
        ++locked[read_once(true)];
    }
    for (int i = 0; i < reads; ++i) {
        ++repeated[read_until_whole(repetitions)];
    }
    is_over = true;
    writer.join();

    std::printf("%d reads each; found empty, partial, mixed:\n", reads);
    for (const auto& [reader, counts] :
         {std::pair<const char*, const int*>{"without a lock", unlocked},
          {"with a shared lock", locked},
          {"with repetition", repeated}}) {
        std::printf("%-20s", reader);
        for (const int count : {counts[empty], counts[partial], counts[mixed]}) {
            std::printf("%8.3f %%", 100.0 * count / reads);
        }
        std::printf("\n");
    }
    std::printf("%.3f repetitions a read\n", 1.0 * repetitions / reads);
    EXPECT_EQ(repeated[whole], reads);
    EXPECT_EQ(locked[partial] + locked[mixed], 0);
    // The event comes when the last write is done.
    EXPECT_EQ(events.wait().name, "e_input_json_update");
    EXPECT_EQ(read_once(true), whole);
}
