/// The USB-C port and its partner, charging, the plug states and the power source.
#include <cstring>

#include "tests/service.h"

namespace {

class UsbPower : public ServiceTest {
protected:
    static void report(const TypeC_Info& record) { send_record(MSG_TYPE_TYPEC_INFO, record); }
    static Json::Value usb_c(const std::string& path)
    {
        return value_of("usb-host.json", ".usb_c" + path);
    }
    static Json::Value power() { return document("power.json")["power"]; }
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
    const struct {
        TypeC_Info record;
        const char* vendor_id;
        const char* vendor;
        const char* product_id;
        std::string product;
    } rows[] = {
        {partner(0, 0, "ignored"), "0000", "USB Implementers Forum", "0000", "Not Supported"},
        {partner(0x17CC, 0xBEEF, "Laptop"), "17CC", "Native Instruments GmbH", "BEEF", "Laptop"},
        {partner(0x0586, 1), "0586", "ZyXEL Communications Corp", "0001", ""},
        {partner(0xFFFF, 1, width), "FFFF", "Unknown", "0001", width},
        {partner(0xEA01, 2, "\x01\"\\\n\x7f"), "EA01", "Eagle Technology", "0002",
         "\x01\"\\\n\x7f"},
        {partner(34, 3, "Gr\xc3\xbc\xc3\x9f"), "0022", "Api error test company", "0003",
         "Gr\xc3\xbc\xc3\x9f"},
    };
    for (TypeC_Info record : {rows[3].record, rows[3].record}) {
        record.PinAssignment = 0x44434241;  // text that a missing terminator would run into
        const std::vector<std::string> lines = logged_by([&] { report(record); });
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_NE(lines[0].find("PeerDeviceMFT_String=" + width + ", PinAssignment=1145258561,"),
                  std::string::npos);
    }
    for (const auto& row : rows) {
        report(row.record);
        settle();
        const Json::Value shown = usb_c("[0].generic.partner");
        EXPECT_EQ(shown["vendor_id"], row.vendor_id);
        EXPECT_EQ(shown["vendor"], row.vendor);
        EXPECT_EQ(shown["product_id"], row.product_id);
        EXPECT_EQ(shown["product"].asString(), row.product);
    }
    report(partner(1, 1, "bad \xff\xc3( utf-8"));  // the document stays JSON
    settle();
    EXPECT_EQ(usb_c("[0].generic.partner.product").asString().substr(0, 4), "bad ");
    EXPECT_EQ(usb_c("[1].generic.partner.vendor"), "N/A");
}

TEST_F(UsbPower, ShowsAlternateModeAndCharging)
{
    const struct {
        std::uint8_t active;
        std::int32_t assignment;
        const char* pins;
    } pin_rows[] = {{1, 4, "C"},    {1, 8, "D"},   {1, 16, "E"},  {1, 2, "N/A"},
                    {1, 12, "N/A"}, {0, 4, "N/A"}, {2, 8, "N/A"}, {1, -4, "N/A"}};
    for (const auto& row : pin_rows) {
        TypeC_Info record = {};
        record.Remote_DpMode_Support = row.active;
        record.DpMode_Active = row.active;
        record.PinAssignment = row.assignment;
        report(record);
        settle();
        EXPECT_EQ(usb_c("[0].generic.active_dp_alt_mode_pins"), row.pins) << row.assignment;
        EXPECT_EQ(usb_c("[0].generic.host_supports_dp_alt_mode"), row.active == 1);
    }
    const struct {
        const char* power;
        std::uint8_t state;
        const char* text;
        bool has_figures;
    } charging_rows[] = {
        {"0", 1, "Unavailable", true},    {"0", 0, "Unavailable", true}, {"1", 1, "Charging", true},
        {"1", 0, "Inactive", false},      {"2", 1, "Charging", true},    {"1", 2, "N/A", false},
        {"junk", 2, "Unavailable", true},
    };
    for (const auto& row : charging_rows) {
        send_text(MSG_TYPE_POWER_STATUS, row.power);
        report(charging(row.state));
        settle();
        const Json::Value shown = usb_c("[0].charging");
        EXPECT_EQ(shown["charging_state"], row.text);
        EXPECT_EQ(shown["vbus_voltage_nominal_v"], row.has_figures ? 9000 : 0) << row.text;
        EXPECT_EQ(shown["max_vbus_current_a"], row.has_figures ? 2000 : 0) << row.text;
    }
}

TEST_F(UsbPower, ConnectsThePortByTwoRoads)
{
    const auto connected = [this](int position) {
        settle();
        return usb_c("[" + std::to_string(position) + "].connected");
    };
    report({});
    EXPECT_EQ(connected(0), true);
    send_text(MSG_TYPE_USB_HOST_IN1, "0");
    EXPECT_EQ(connected(0), false);
    report({});
    EXPECT_EQ(connected(0), true);
    for (const auto& [text, plugged] : {std::pair{"1", true}, {"5", false}, {"", false}}) {
        send_text(MSG_TYPE_USB_HOST_IN1, text);
        send_text(MSG_TYPE_USB_HOST_IN2, text);
        EXPECT_EQ(connected(0), plugged) << text;
        EXPECT_EQ(connected(1), plugged) << text;
    }
    events.take_names();
    EXPECT_EQ(accesses_by("usb-host.json",
                          [] {
                              report({}), report({});
                              send_text(MSG_TYPE_USB_HOST_IN1, "1");
                              send_text(MSG_TYPE_USB_HOST_IN1, "1");
                              send_text(MSG_TYPE_USB_HOST_IN2, "1");
                              send_text(MSG_TYPE_USB_HOST_IN2, "1");
                          }),
              (Accesses{6, 6}));
    EXPECT_EQ(events.take_names(), std::vector<std::string>(6, "e_usb_host_json_update"));
}

TEST_F(UsbPower, ControlsCharging)
{
    const struct {
        const char* text;
        int writes;
        bool enabled;
    } rows[] = {{"1", 1, true}, {"1", 0, true},     {"2", 1, false},
                {"1", 1, true}, {"junk", 1, false}, {"", 0, false}};
    for (const auto& row : rows) {
        EXPECT_EQ(
            accesses_by("usb-host.json", [&] { send_text(MSG_TYPE_CHARGER_STATUS, row.text); }),
            (Accesses{1, row.writes}))
            << row.text;
        EXPECT_EQ(usb_c("[0].charging.control.charging_enabled"), row.enabled) << row.text;
    }
    EXPECT_EQ(usb_c("[1].charging.control.charging_enabled"), false);
}

TEST_F(UsbPower, RebuildsTheUsbDocument)
{
    write_document("usb-host.json", "{");
    EXPECT_EQ(accesses_by("usb-host.json", [] { send_text(MSG_TYPE_CHARGER_STATUS, "0"); }),
              (Accesses{1, 0}));
    report(partner(0xFFFF, 1));
    settle();
    EXPECT_EQ(usb_c("").size(), 1U);
    EXPECT_FALSE(usb_c("[0]").isMember("index"));
    EXPECT_TRUE(usb_c("[0].generic").isMember("host_supports_dp_alt_mode"));
    EXPECT_TRUE(usb_c("[0].generic.host_supports_dp_alt_mode").isNull());
    EXPECT_TRUE(usb_c("[0].generic.partner.product").isNull());

    send_text(MSG_TYPE_USB_HOST_IN2, "1");  // finds no entry, and writes
    settle();
    EXPECT_TRUE(usb_c("[0]").isMember("index"));
    EXPECT_TRUE(usb_c("[0].index").isNull());

    write_document("usb-host.json",
                   R"({"usb_c": [3, {"index": "2"}, {"index": 2.0}, {"index": 2}]})");
    send_text(MSG_TYPE_USB_HOST_IN2, "1");
    settle();
    EXPECT_EQ(usb_c("[0]"), 3);
    EXPECT_FALSE(usb_c("[1]").isMember("connected"));
    EXPECT_EQ(usb_c("[2].connected"), true);
    EXPECT_FALSE(usb_c("[3]").isMember("connected"));

    write_document("usb-host.json", "7");
    send_text(MSG_TYPE_USB_HOST_IN1, "1");
    settle();
    EXPECT_EQ(document("usb-host.json")["usb_c"], Json::Value(Json::arrayValue));
    send_text(MSG_TYPE_CHARGER_STATUS, "1");
    settle();
    EXPECT_EQ(usb_c("[0].charging.control.charging_enabled"), true);
}

TEST_F(UsbPower, ShowsThePowerSource)
{
    const auto expect_power = [this](const char* source, int voltage, int current) {
        settle();
        EXPECT_EQ(power()["power_source"], source);
        EXPECT_EQ(power()["measured_power_voltage_v"], voltage);
        EXPECT_EQ(power()["measured_power_current_a"], current);
    };
    const struct {
        std::uint32_t type;
        const char* text;
        int writes;
        const char* source;
        int voltage;
        int current;
    } rows[] = {
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
    std::size_t writes = 0;
    for (const auto& row : rows) {
        EXPECT_EQ(accesses_by("power.json", [&] { send_text(row.type, row.text); }),
                  (Accesses{row.writes, row.writes}))
            << row.type << ' ' << row.text;
        expect_power(row.source, row.voltage, row.current);
        writes += static_cast<std::size_t>(row.writes);
    }
    EXPECT_EQ(events.take_names(), std::vector<std::string>(writes, "e_power_json_update"));
}

TEST_F(UsbPower, RebuildsThePowerDocument)
{
    const struct {
        const char* damaged;
        std::uint32_t type;
        const char* text;
        const char* rebuilt;
    } rows[] = {
        {"", MSG_TYPE_POWER_STATUS, "3", R"({"power":{}})"},
        {R"({"power":null})", MSG_TYPE_POWER_STATUS, "3", R"({"power":null})"},
        {R"({"power":[1]})", MSG_TYPE_POWER_STATUS, "3", R"({"power":{}})"},
        {R"({"power":5,"other":1})", MSG_TYPE_POWER_V_VALUE, "7",
         R"({"other":1,"power":{"measured_power_current_a":7}})"},
        {"[1]", MSG_TYPE_POWER_STATUS, "1",
         R"({"power":{"measured_power_voltage_v":24000,"power_source":"Adapter"}})"},
    };
    for (const auto& row : rows) {
        write_document("power.json", row.damaged);
        send_text(row.type, row.text);
        settle();
        const Json::Value shown = document("power.json");
        write_document("power.json", row.rebuilt);
        EXPECT_EQ(shown, document("power.json")) << row.damaged;
    }
}
