/// The three seconds of `inputs.json`; what the other events follow stands in the transcripts.
#include <thread>

#include "tests/service.h"

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

const std::string input_event = "e_input_json_update";
const std::string power_event = "e_power_json_update";

using UpdateEvents = ServiceTest;

void expect_three_seconds_since(steady_clock::time_point write)
{
    EXPECT_GE(steady_clock::now() - write, seconds(3));
    EXPECT_LT(steady_clock::now() - write, seconds(5));
}

}  // namespace

// Each write starts the three seconds anew, what writes nothing does not. When they are over, both
// threads send, from one netlink address, which one socket at a time can have: no event is lost.
TEST_F(UpdateEvents, OfInputsComesThreeSecondsAfterTheLastWriteOfABurst)
{
    send_line("uac_control 0 1 1");
    send_line("uac_control 0 1 1");
    std::this_thread::sleep_for(seconds(1));
    auto last_write = steady_clock::now();
    send_line("uac_control 0 1 1");
    std::this_thread::sleep_for(seconds(1));
    send_line("hdcp_version 0 2");  // as it is already
    for (int sent = 0, heard = 0, over = 0; over == 0 || heard < sent;) {
        for (; over == 0 && sent < heard + 64; ++sent) {
            send_line("power_status 1");
        }
        const std::string event = events.wait();
        ASSERT_FALSE(HasFailure());
        heard += event == power_event ? 1 : 0;
        if (event == input_event) {
            ++over;
            expect_three_seconds_since(last_write);
        }
        ASSERT_LE(over, 1);
    }

    last_write = steady_clock::now();
    send_line("uac_control 0 1 1");
    EXPECT_EQ(events.wait(), input_event);
    expect_three_seconds_since(last_write);
    settle();
    EXPECT_EQ(events.take_names(), Lines());
}
