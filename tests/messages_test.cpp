/// What a transcript can't say: datagrams of any length, the ring, and what the service needs of
/// the system while it works and while it doesn't.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>

#include "store/documents.h"
#include "tests/service.h"

namespace fs = std::filesystem;

namespace {

class Messages : public ServiceTest {
protected:
    static void send_status(int length, const std::string& text)
    {
        const MessageHeader header = {MSG_TYPE_POWER_STATUS, static_cast<std::uint32_t>(length)};
        send(std::string(reinterpret_cast<const char*>(&header), sizeof header) + text);
    }

    static std::string logged(const std::string& status)
    {
        return "Power status message received Power status=" + status;
    }

    /// Has the dispatch thread stand still in a rewrite of `power.json`, as a reader's lock does.
    void hold_dispatch()
    {
        reader_ = open(power_document.path, O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(flock(reader_, LOCK_SH), 0);
        send_line("power_status 0");
        wait_until("the rewrite", [] { return fs::file_size(power_document.path) == 0; });
    }
    void release_dispatch() const { close(reader_); }

    long resident_kib() const
    {
        const std::string status = read_file("/proc/" + std::to_string(service_pid()) + "/status");
        return std::stol(status.substr(status.find("VmRSS:") + 6));
    }

    /// In nanoseconds, of all threads.
    std::int64_t processor_time() const
    {
        clockid_t clock = 0;
        timespec time = {};
        EXPECT_EQ(clock_getcpuclockid(service_pid(), &clock), 0);
        EXPECT_EQ(clock_gettime(clock, &time), 0);
        return std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
    }

private:
    int reader_ = -1;
};

}  // namespace

TEST_F(Messages, CountToTheirFirst1023Bytes)
{
    EXPECT_EQ(logged_by([] { send(""); }), Lines());
    const std::string header("\x2A\0\0\0\x05\0\0\0", 8);
    for (std::size_t size = 1; size < 8; ++size) {  // what they do is not defined
        send(header.substr(0, size));
    }
    const std::string text = std::string(1010, ' ') + "12345" + std::string(3000, '6');
    for (const std::size_t size : {1022U, 1023U, 1024U, 1025U, 4000U}) {
        EXPECT_EQ(logged_by([&] { send_status(1, text.substr(0, size - 8)); }),
                  Lines{logged(size > 1022 ? "12345" : "1234")})
            << size;
    }
}

// What the ring holds stays, in its order; what comes is dropped, and every hundredth drop is told
// from the first on. The slots are used again, and nothing of a longer message is left in them.
TEST_F(Messages, WaitInARingOf128)
{
    int told = 1;  // drops
    for (const char* digits : {"000000", "000", ""}) {
        Lines expected = {logged("0")};
        const Lines lines = logged_by([&] {
            hold_dispatch();
            const int count = 128 + (told == 1 ? 101 : 100);
            for (const int end = told + count - 128; told < end; told += 100) {
                expected.push_back("Message queue overflow, dropped=" + std::to_string(told) +
                                   ", queue_size=128");
            }
            const std::string last_drop = expected.back();
            for (int number = 1; number <= count; ++number) {
                const std::string status = std::to_string(100 + number) + digits;
                send_status(1, status);
                if (number <= 128) {
                    expected.push_back(logged(status));
                }
            }
            wait_logged(last_drop);
            release_dispatch();
            for (int number = 0; number <= 128; ++number) {
                EXPECT_EQ(events.wait(), power_document.event);
            }
        });
        EXPECT_EQ(lines, expected);
    }
}

TEST_F(Messages, LeaveNoMemoryBehindAndAnIdleServiceSleeps)
{
    write_file(ethernet_port_status_path, "1 2 1 1 2 1 1 2 1 1 2 1");
    write_file(videoip_timing_path, "Src Refresh Rate: [60]Hz\n");
    [[maybe_unused]] long resident_before = 0;
    for (int batch = 0; batch < 30; ++batch) {
        for (const std::string number : {"0", "1"}) {
            for (const std::string line :
                 {"link_status isConnect=", "video_status isStable=", "1080p60 scan_mode=",
                  "hdcp_status status=", "audio_status isStable=", "hdmi_video_mode mode=",
                  "video_start_working ", "typec_info PeerDevicePID=", "charger_status ",
                  "usb_host_in1 ", "usb_host_in2 ", "power_status ", "power_v_value ",
                  "uac_control 0 0 ", "ethernet_control 4 on ", "hdcp_version 0 "}) {
                send_line(line + number);
            }
            send_line("ethernet_status");
            settle();
        }
        if (batch == 3) {
            resident_before = resident_kib();
        }
    }
#ifndef SANITIZED
    if (!has_stand_in()) {
        EXPECT_LT(resident_kib(), resident_before + 128);
    }
#endif
#ifndef THREAD_SANITIZED  // whose runtime has a thread of its own
    wait_until("sleep", [&] {
        const std::int64_t before_idling = processor_time();
        usleep(100000);
        return processor_time() == before_idling;
    });
#endif
}
