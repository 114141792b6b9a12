/// The events: their form on the wire, what sends one, and the three seconds of `inputs.json`.
#include <linux/netlink.h>
#include <sys/mount.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <thread>

#include "tests/table_test.h"

namespace {

using std::chrono::seconds;
using Names = std::vector<std::string>;
using UpdateEvents = TableTest;

const std::string input_event = "e_input_json_update";

}  // namespace

TEST_F(UpdateEvents, HaveTheirNameAndZerosInAMessageOfFullSize)
{
    send_line("power_status 1");
    nlmsghdr header = {};
    header.nlmsg_len = 1040;
    header.nlmsg_pid = static_cast<std::uint32_t>(service_pid());
    std::string expected(reinterpret_cast<const char*>(&header), sizeof header);
    expected += "e_power_json_update";
    expected.resize(1040, '\0');
    EXPECT_EQ(events.wait().bytes, expected);
}

PLAYED_TEST(UpdateEvents, FollowEachWriteAtOnce)

// Each write starts the three seconds anew, what writes nothing does not, and `outputs.json`,
// which every message here rewrites as well, has no event.
TEST_F(UpdateEvents, OfInputsComesThreeSecondsAfterTheLastWriteOfABurst)
{
    const auto write_inputs = [] { send_line("uac_control 0 1 1"); };
    const auto write_nothing = [] { send_line("hdcp_version 0 2"); };
    write_inputs();
    write_inputs();
    std::this_thread::sleep_for(seconds(2));
    const auto last_write = std::chrono::steady_clock::now();
    write_inputs();
    send_line("usb_host_in1 1");
    std::this_thread::sleep_for(seconds(2));
    EXPECT_EQ(accesses_by("inputs.json", write_nothing), (Accesses{1, 0}));

    EXPECT_EQ(events.wait().name, "e_usb_host_json_update");
    const Event first = events.wait();
    EXPECT_EQ(first.name, input_event);
    EXPECT_GE(first.time - last_write, seconds(3));
    EXPECT_LT(first.time - last_write, seconds(5) - std::chrono::milliseconds(100));

    const auto next_write = std::chrono::steady_clock::now();
    write_inputs();
    const Event second = events.wait();
    EXPECT_EQ(second.name, input_event);
    EXPECT_GE(second.time - next_write, seconds(3));
    EXPECT_LT(second.time - next_write, seconds(5));
    EXPECT_EQ(events.take_names(), Names{});
}

// Both threads send from the same netlink address, which one socket at a time can have.
TEST_F(UpdateEvents, OfBothThreadsDoNotPushEachOtherOut)
{
    const auto in_two_seconds = std::chrono::steady_clock::now() + seconds(2);
    send_line("uac_control 0 1 1");
    std::this_thread::sleep_until(in_two_seconds);
    std::ptrdiff_t input_events = 0;
    while (input_events == 0 && !HasFailure() &&
           std::chrono::steady_clock::now() < in_two_seconds + seconds(10)) {
        Names names;
        for (int number = 0; number < 32; ++number) {
            send_line("power_status 1");
        }
        while (std::count(names.begin(), names.end(), "e_power_json_update") < 32 &&
               !HasFailure()) {
            names.push_back(events.wait().name);
        }
        input_events = std::count(names.begin(), names.end(), input_event);
    }
    EXPECT_EQ(input_events, 1);
}

TEST_F(UpdateEvents, AnnounceAlsoAWriteThatFailed)
{
    ASSERT_EQ(mount("full", status_directory, "tmpfs", 0, "size=4096"), 0) << std::strerror(errno);
    std::ofstream(path_of("filler")) << std::string(1 << 20, 'x');
    send_line("power_v_value 7");
    settle();
    EXPECT_EQ(events.take_names(), Names{"e_power_json_update"});
    EXPECT_EQ(take_standard_error(), "write json file: No space left on device\n");
    EXPECT_EQ(text_of("power.json"), "");

    write_document("filler", "");
    send_line("power_v_value 8");
    settle();
    EXPECT_EQ(value_of("power.json", ".power.measured_power_current_a"), 8);
    EXPECT_EQ(umount2(status_directory, MNT_DETACH), 0);
}
