/// The three seconds of `inputs.json`; what the other events follow stands in the transcripts.
#include <algorithm>
#include <thread>

#include "tests/service.h"

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

const std::string input_event = "e_input_json_update";
const std::string power_event = "e_power_json_update";

using UpdateEvents = ServiceTest;

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
        const Event event = events.wait();
        ASSERT_FALSE(HasFailure());
        heard += event.name == power_event ? 1 : 0;
        if (event.name == input_event) {
            ++over;
            EXPECT_GE(event.time - last_write, seconds(3));
            EXPECT_LT(event.time - last_write, seconds(5));
        }
        ASSERT_LE(over, 1);
    }

    last_write = steady_clock::now();
    send_line("uac_control 0 1 1");
    const Event again = events.wait();
    EXPECT_EQ(again.name, input_event);
    EXPECT_GE(again.time - last_write, seconds(3));
    EXPECT_LT(again.time - last_write, seconds(5));
    settle();
    EXPECT_EQ(events.take_names(), Lines());
}
