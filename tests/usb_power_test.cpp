/// The USB-C port and its partner, charging, the plug states and the power source.
#include <algorithm>
#include <cstring>
#include <tuple>

#include "tests/service.h"

namespace {

class UsbPower : public ServiceTest {
protected:
    static void report(const TypeC_Info& record) { send_record(MSG_TYPE_TYPEC_INFO, record); }
    static Json::Value usb_c(const std::string& path)
    {
        return value_of("usb-host.json", ".usb_c" + path);
    }

    /// What a text costs of a document.
    Accesses cost_of(const std::string& name, std::uint32_t type, const std::string& text)
    {
        return accesses_by(name, [&] { send_text(type, text); });
    }
};

TypeC_Info charging(std::uint8_t state)
{
    TypeC_Info record = {};
    record.ChargingState = state;
    record.Charging_mV = 9000;
    record.Charging_mA = 2000;
    return record;
}

TypeC_Info partner(std::uint16_t vendor, std::uint16_t product, const std::string& text = "")
{
    TypeC_Info record = {};
    record.PeerDeviceVID = vendor;
    record.PeerDevicePID = product;
    std::memcpy(record.PeerDeviceMFT_String, text.data(),
                std::min(text.size(), sizeof record.PeerDeviceMFT_String));
    return record;
}

}  // namespace

TEST_F(UsbPower, NamesThePartner)
{
    const std::string width = "ABCDEFGHIJKLMNOPQRSTUV";
    TypeC_Info unterminated = partner(0xFFFF, 1, width);
    unterminated.PinAssignment = 0x44434241;  // text that a missing terminator would run into
    const std::vector<std::string> lines = logged_by([&] { report(unterminated); });
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].find("PeerDeviceMFT_String=" + width + ", PinAssignment=1145258561,"),
              std::string::npos);

    const std::tuple<TypeC_Info, const char*, const char*, const char*, const char*> rows[] = {
        {partner(0, 0, "ignored"), "0000", "USB Implementers Forum", "0000", "Not Supported"},
        {partner(0, 9, "Hub"), "0000", "USB Implementers Forum", "0009", "Hub"},
        {partner(0x17CC, 0xBEEF, "Laptop"), "17CC", "Native Instruments GmbH", "BEEF", "Laptop"},
        {partner(0x0586, 1), "0586", "ZyXEL Communications Corp", "0001", ""},
        {unterminated, "FFFF", "Unknown", "0001", width.c_str()},
        {partner(0xEA01, 2, "\x01\"\\\n\x7f"), "EA01", "Eagle Technology", "0002",
         "\x01\"\\\n\x7f"},
        {partner(34, 3, "Gr\xc3\xbc\xc3\x9f"), "0022", "Api error test company", "0003",
         "Gr\xc3\xbc\xc3\x9f"},
    };
    for (const auto& [record, vendor_id, vendor, product_id, product] : rows) {
        report(record);
        settle();
        const Json::Value shown = usb_c("[0].generic.partner");
        EXPECT_EQ(shown["vendor_id"], vendor_id);
        EXPECT_EQ(shown["vendor"], vendor);
        EXPECT_EQ(shown["product_id"], product_id);
        EXPECT_EQ(shown["product"], product);
    }
    report(partner(1, 1, "bad \xff\xc3( utf-8"));  // the document stays JSON
    settle();
    EXPECT_EQ(usb_c("[0].generic.partner.product").asString().substr(0, 4), "bad ");
    EXPECT_EQ(usb_c("[1].generic.partner.vendor"), "N/A");
}

TEST_F(UsbPower, ShowsAlternateModeAndCharging)
{
    const std::tuple<std::uint8_t, int, const char*> pin_rows[] = {
        {1, 4, "C"},    {1, 8, "D"},   {1, 16, "E"},  {1, 2, "N/A"},
        {1, 12, "N/A"}, {0, 4, "N/A"}, {2, 8, "N/A"}, {1, -4, "N/A"}};
    for (const auto& [active, assignment, pins] : pin_rows) {
        TypeC_Info record = {};
        record.Remote_DpMode_Support = record.DpMode_Active = active;
        record.PinAssignment = assignment;
        report(record);
        settle();
        EXPECT_EQ(usb_c("[0].generic.active_dp_alt_mode_pins"), pins) << assignment;
        EXPECT_EQ(usb_c("[0].generic.host_supports_dp_alt_mode"), active == 1);
    }
    const std::tuple<const char*, std::uint8_t, const char*, bool> charging_rows[] = {
        {"0", 1, "Unavailable", true},    {"0", 0, "Unavailable", true}, {"1", 1, "Charging", true},
        {"1", 0, "Inactive", false},      {"2", 1, "Charging", true},    {"1", 2, "N/A", false},
        {"junk", 2, "Unavailable", true},
    };
    for (const auto& [source, state, text, has_figures] : charging_rows) {
        send_text(MSG_TYPE_POWER_STATUS, source);
        report(charging(state));
        settle();
        const Json::Value shown = usb_c("[0].charging");
        EXPECT_EQ(shown["charging_state"], text);
        EXPECT_EQ(shown["vbus_voltage_nominal_v"], has_figures ? 9000 : 0) << text;
        EXPECT_EQ(shown["max_vbus_current_a"], has_figures ? 2000 : 0) << text;
    }
}

TEST_F(UsbPower, ConnectsThePortByTwoRoads)
{
    const auto expect_connected = [this](bool first, bool second) {
        settle();
        EXPECT_EQ(usb_c("[0].connected"), first);
        EXPECT_EQ(usb_c("[1].connected"), second);
    };
    report({});
    expect_connected(true, false);
    send_text(MSG_TYPE_USB_HOST_IN1, "0");
    send_text(MSG_TYPE_USB_HOST_IN2, "1");
    expect_connected(false, true);
    report({});
    expect_connected(true, true);
    for (const auto& [text, plugged] : {std::pair{"5", false}, {"1", true}, {"", false}}) {
        send_text(MSG_TYPE_USB_HOST_IN1, text);
        send_text(MSG_TYPE_USB_HOST_IN2, text);
        expect_connected(plugged, plugged);
    }
    const auto twice_each = [] {
        for (const char* text : {"1", "1"}) {
            report({});
            send_text(MSG_TYPE_USB_HOST_IN1, text);
            send_text(MSG_TYPE_USB_HOST_IN2, text);
        }
    };
    events.take_names();
    EXPECT_EQ(accesses_by("usb-host.json", twice_each), (Accesses{6, 6}));
    EXPECT_EQ(events.take_names(), std::vector<std::string>(6, "e_usb_host_json_update"));
}

TEST_F(UsbPower, ControlsCharging)
{
    const std::tuple<const char*, int, bool> rows[] = {{"1", 1, true},     {"1", 0, true},
                                                       {"2", 1, false},    {"1", 1, true},
                                                       {"junk", 1, false}, {"", 0, false}};
    for (const auto& [text, writes, enabled] : rows) {
        EXPECT_EQ(cost_of("usb-host.json", MSG_TYPE_CHARGER_STATUS, text), (Accesses{1, writes}))
            << text;
        EXPECT_EQ(usb_c("[0].charging.control.charging_enabled"), enabled) << text;
    }
    EXPECT_EQ(usb_c("[1].charging.control.charging_enabled"), false);
}

TEST_F(UsbPower, RebuildsTheUsbDocument)
{
    write_document("usb-host.json", "{");
    EXPECT_EQ(cost_of("usb-host.json", MSG_TYPE_CHARGER_STATUS, "0"), only_read);
    report(partner(0xFFFF, 1));
    send_text(MSG_TYPE_USB_HOST_IN2, "1");  // finds no entry, and writes
    settle();
    EXPECT_EQ(document("usb-host.json"), parsed(R"({"usb_c": [{"index": null, "connected": true,
        "generic": {"host_supports_dp_alt_mode": null, "active_dp_alt_mode_pins": "N/A", "partner":
            {"vendor_id": "FFFF", "vendor": "Unknown", "product_id": "0001", "product": null}},
        "charging": {"vbus_voltage_nominal_v": 0, "max_vbus_current_a": 0,
            "charging_state": "Unavailable"}}]})"));
}

TEST_F(UsbPower, ShowsThePowerSource)
{
    const std::tuple<std::uint32_t, const char*, int, const char*, int, int> rows[] = {
        {MSG_TYPE_POWER_V_VALUE, "-1", 0, "PoE", 11900, 0},
        {MSG_TYPE_POWER_V_VALUE, "0", 1, "PoE", 11900, 0},
        {MSG_TYPE_POWER_STATUS, "1", 1, "Adapter", 24000, 0},
        {MSG_TYPE_POWER_STATUS, "1", 1, "Adapter", 24000, 0},
        {MSG_TYPE_POWER_V_VALUE, "1200", 1, "Adapter", 24000, 1200},
        {MSG_TYPE_POWER_V_VALUE, "1200", 0, "Adapter", 24000, 1200},
        {MSG_TYPE_POWER_V_VALUE, "1300x", 1, "Adapter", 24000, 1300},
        {MSG_TYPE_POWER_STATUS, "2", 1, "Adapter", 24000, 1300},
        {MSG_TYPE_POWER_STATUS, "PoE", 1, "PoE", 11900, 1300},
        {MSG_TYPE_POWER_V_VALUE, "", 1, "PoE", 11900, 0},
    };
    for (const auto& [type, text, writes, source, voltage, current] : rows) {
        EXPECT_EQ(cost_of("power.json", type, text), (Accesses{writes, writes})) << text;
        const Json::Value power = value_of("power.json", ".power");
        EXPECT_EQ(power["power_source"], source);
        EXPECT_EQ(power["measured_power_voltage_v"], voltage);
        EXPECT_EQ(power["measured_power_current_a"], current);
    }
    EXPECT_EQ(events.take_names(), std::vector<std::string>(8, "e_power_json_update"));
}

TEST_F(UsbPower, RebuildsThePowerDocument)
{
    const std::tuple<const char*, std::uint32_t, const char*, const char*> rows[] = {
        {"", MSG_TYPE_POWER_STATUS, "3", R"({"power": {}})"},
        {R"({"power": null})", MSG_TYPE_POWER_STATUS, "3", R"({"power": null})"},
        {R"({"power": [1]})", MSG_TYPE_POWER_STATUS, "3", R"({"power": {}})"},
        {R"({"power": 5, "other": 1})", MSG_TYPE_POWER_V_VALUE, "7",
         R"({"other": 1, "power": {"measured_power_current_a": 7}})"},
    };
    for (const auto& [damaged, type, text, rebuilt] : rows) {
        write_document("power.json", damaged);
        send_text(type, text);
        settle();
        EXPECT_EQ(document("power.json"), parsed(rebuilt)) << damaged;
    }
}
