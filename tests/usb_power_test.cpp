/// The USB-C port and its partner, charging, the plug states and the power source.
#include "tests/table_test.h"

using UsbPower = TableTest;

PLAYED_TEST(UsbPower, NamesThePartner)
PLAYED_TEST(UsbPower, ShowsAlternateModeAndCharging)
PLAYED_TEST(UsbPower, ConnectsThePortByTwoRoads)
PLAYED_TEST(UsbPower, ControlsCharging)
PLAYED_TEST(UsbPower, ShowsThePowerSource)

TEST_F(UsbPower, TakesAnyBytesForAName)
{
    // Without a terminator, and with text behind it that it would run into.
    const std::string name = "ABCDEFGHIJKLMNOPQRSTUV";
    const std::string words = "typec_info PeerDevicePID=1 PinAssignment=0x44434241 ";
    const std::vector<std::string> lines =
        logged_by([&] { send_line(words + "PeerDeviceMFT_String=" + name); });
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].find("PeerDeviceMFT_String=" + name + ", PinAssignment=1145258561,"),
              std::string::npos);
    const std::string product = ".usb_c[0].generic.partner.product";
    EXPECT_EQ(value_of("usb-host.json", product), name);

    send_line("typec_info PeerDevicePID=1 PeerDeviceMFT_String=bad\xff\xc3(utf-8");
    settle();
    // The document stays JSON.
    EXPECT_EQ(value_of("usb-host.json", product).asString().substr(0, 3), "bad");
}
