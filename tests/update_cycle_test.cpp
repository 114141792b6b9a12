/// The cycle that changes a document: read, shape, change, write; and documents that something
/// else on the device has damaged.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <tuple>

#include "tests/video_test.h"

namespace fs = std::filesystem;

namespace {

const char* const document_names[] = {"inputs.json", "usb-host.json", "ethernet.json", "power.json",
                                      "outputs.json"};

class UpdateCycle : public VideoTest {
protected:
    /// What a message leaves in a document that held no object.
    struct Report {
        const char* name;
        Action message;
        const char* left;
    };
    static std::vector<Report> reports();

    /// Every message that reaches a document, for both video inputs, in an order in which each one
    /// has something to write.
    static std::vector<Action> every_message();

    void send_every_message()
    {
        for (const Action& message : every_message()) {
            message();
        }
        settle();
    }

    static Action source(const std::string& input) { return text(MSG_TYPE_POWER_STATUS, input); }
    static Action charger(const std::string& input) { return text(MSG_TYPE_CHARGER_STATUS, input); }
    static Action in2(const std::string& input) { return text(MSG_TYPE_USB_HOST_IN2, input); }

    /// Checks what a message makes of a document.
    void expect_left(const char* name, const Action& message, const std::string& left)
    {
        message();
        settle();
        EXPECT_EQ(document(name), parsed(left));
    }
};

std::vector<UpdateCycle::Report> UpdateCycle::reports()
{
    return {
        {"inputs.json", allow("1 1"),
         R"({"inputs": [{"video": null},
             {"video": {"hdcp": {"control": {"allowed_hdcp_version": "HDCP 1.4"}}}}]})"},
        {"inputs.json", audio(0, 1, 0, 2, 2),
         R"({"inputs": [{"audio": {"connected": true, "signal_present": true, "format": "LPCM",
             "sample_frequency": "48 kHz", "channel": 2}}]})"},
        {"outputs.json", uac("0 1 0"),
         R"({"outputs": [{"port_type": "UAC", "index": 1, "audio": {"connected": false,
             "signal_present": false, "format": "N/A", "sample_frequency": "N/A",
             "channel": 0}}]})"},
        {"power.json", source("1"),
         R"({"power": {"power_source": "Adapter", "measured_power_voltage_v": 24000}})"},
        {"usb-host.json", charger("1"),
         R"({"usb_c": [{"charging": {"control": {"charging_enabled": true}}}]})"},
        {"usb-host.json", in2("1"), R"({"usb_c": []})"},
    };
}

std::vector<Action> UpdateCycle::every_message()
{
    std::vector<Action> messages = {report(MSG_TYPE_TYPEC_INFO, TypeC_Info{}),
                                    source("1"),
                                    text(MSG_TYPE_POWER_V_VALUE, "7"),
                                    text(MSG_TYPE_ETHERNET_CONTROL, "3 on"),
                                    text(MSG_TYPE_ETHERNET_STATUS, ""),
                                    charger("1"),
                                    uac("0 1 1"),
                                    in2("1"),
                                    text(MSG_TYPE_USB_HOST_IN1, "1")};
    for (const u8 port : {u8{0}, u8{1}}) {
        for (const u8 on : {u8{1}, u8{0}, u8{1}}) {
            const std::string allowed = std::to_string(port) + " " + std::to_string(on);
            for (const Action& message :
                 {signal(port, on), audio(port, on, 0, 2, 6), link(port, on),
                  timing(timing_1080p60, port), mode(port, on), hdcp(port, on), allow(allowed)}) {
                messages.push_back(message);
            }
        }
    }
    return messages;
}

std::string repeated(const std::string& text, int count)
{
    std::string result;
    while (count-- > 0) {
        result += text;
    }
    return result;
}

}  // namespace

// Readers who hold a document open see it change; its members are sorted, its mode stays.
TEST_F(UpdateCycle, RewritesADocumentInPlace)
{
    std::ifstream reader(power_document_path);
    fs::permissions(power_document_path, fs::perms::owner_all);
    send_every_message();
    for (const char* name : document_names) {
        EXPECT_EQ(text_of(name), document(name).toStyledString()) << name;
    }
    const std::string text(std::istreambuf_iterator<char>(reader), {});
    EXPECT_EQ(text, text_of("power.json"));
    EXPECT_LT(text.find("measured_power_voltage_v"), text.find("power_source"));
    EXPECT_EQ(fs::status(power_document_path).permissions(), fs::perms::owner_all);
}

TEST_F(UpdateCycle, BuildsADeletedDocumentFromTheMembersReported)
{
    for (const Report& report : reports()) {
        fs::remove(path_of(report.name));
        expect_left(report.name, report.message, report.left);
        struct stat status = {};
        stat(path_of(report.name).c_str(), &status);
        EXPECT_EQ(status.st_mode & 07777U, 0644U) << report.name;
    }
}

TEST_F(UpdateCycle, TakesATextWithoutAnObjectForAnEmptyDocument)
{
    const std::string open = repeated("[", 100000);
    const std::string close = repeated("]", 100000);
    const std::string texts[] = {
        // clang-format off
        "", "{\"power\": {\"power_source\": \"Ad", "{]", "[]", "[1, {\"power\": 2}]", "17",
        "\"inputs\"", "null", "true", std::string("\0\0\0", 3), "\xef\xbb\xbf{}",
        "\xff\xfe\xc0\x80", "{\"power\": \xff}", "{\"power\": 1e}",
        open, open + close, repeated("{\"inputs\":", 100000), "{\"power\": " + open + close + "}",
        std::string(4 << 20, 'x'),
        // clang-format on
    };
    for (const std::string& text : texts) {
        SCOPED_TRACE(text.substr(0, 60));
        for (const Report& report : reports()) {
            write_document(report.name, text);
            expect_left(report.name, report.message, report.left);
        }
    }
}

// Documents that are objects and yet not of the right shape: what is of the wrong kind counts as
// absent, all else stays.
TEST_F(UpdateCycle, TakesWhatIsOfTheWrongKindForAbsent)
{
    const std::string off = R"("video": {"hdcp": {"control": {"allowed_hdcp_version": "Off"}}})";
    const std::string silent = R"("audio": {"connected": false, "signal_present": false,
        "format": "N/A", "sample_frequency": "N/A", "channel": 0})";
    const std::string poe = R"("power_source": "PoE", "measured_power_voltage_v": 11900)";
    const std::string charges =
        R"({"usb_c": [{"charging": {"control": {"charging_enabled": true}}}]})";
    const std::tuple<const char*, std::string, Action, std::string> rows[] = {
        {"inputs.json", R"({"a": 1, "inputs": {"video": 1}})", allow("0 0"),
         R"({"a": 1, "inputs": [{)" + off + "}]}"},
        {"inputs.json", R"({"inputs": [5, "six", [7]]})", allow("1 0"),
         R"({"inputs": [5, {)" + off + "}, [7]]}"},
        {"inputs.json", R"({"inputs": [{"b": 2, "video": [1]}]})", allow("0 0"),
         R"({"inputs": [{"b": 2, )" + off + "}]}"},
        {"inputs.json",
         R"({"inputs": [{"video": {"hdcp": {"control": {"allowed_hdcp_version": {}}}}}]})",
         allow("0 0"), R"({"inputs": [{)" + off + "}]}"},
        {"inputs.json", R"({"inputs": [{"audio": {"connected": [], "signal_present": "true",
             "format": {}, "sample_frequency": [1], "channel": 1e300}}]})",
         audio(0, 0, 0, 0, 0), R"({"inputs": [{)" + silent + "}]}"},
        {"inputs.json",
         R"({"inputs": [3, {"port_type": 4}, {"port_type": "UAC", "control": 8, "audio": []}]})",
         uac("0 1 0"),
         R"({"inputs": [3, {"port_type": 4}, {"port_type": "UAC", "control": {"enabled": true}, )" +
             silent + "}]}"},
        {"outputs.json", R"({"outputs": [[], {"port_type": "UAC", "audio": "x"}]})", uac("0 1 1"),
         R"({"outputs": [[], {"port_type": "UAC",
             "audio": {"connected": true, "signal_present": true}}]})"},
        {"power.json", R"({"power": {"power_source": 99999999999999999999, "x": -1e300}})",
         source("0"), R"({"power": {"x": -1e300, )" + poe + "}}"},
        {"power.json", "// note\n{\"power\": /* note */ {\"power_source\": \"x\"}} // note\n",
         source("0"), R"({"power": {)" + poe + "}}"},
        {"usb-host.json",
         R"({"usb_c": [7, {"index": 1e300}, {"index": "2"}, {"index": 2.0}, {"index": 2}]})",
         in2("1"), R"({"usb_c": [7, {"index": null}, {"index": null},
             {"index": 2.0, "connected": true}, {"index": 2}]})"},
        {"usb-host.json", R"({"usb_c": [{"generic": {"host_supports_dp_alt_mode": {}}}]})",
         report(MSG_TYPE_TYPEC_INFO, TypeC_Info{}), R"({"usb_c": [{"connected": true,
             "charging": {"charging_state": "Unavailable", "max_vbus_current_a": 0,
                          "vbus_voltage_nominal_v": 0},
             "generic": {"active_dp_alt_mode_pins": "N/A", "host_supports_dp_alt_mode": null,
                         "partner": {"product": "Not Supported", "product_id": "0000",
                                     "vendor_id": "0000",
                                     "vendor": "USB Implementers Forum"}}}]})"},
        {"usb-host.json", R"({"usb_c": ["x"]})", charger("1"), charges},
        {"usb-host.json", R"({"usb_c": [{"charging": {"control": {"charging_enabled": "no"}}}]})",
         charger("1"), charges},
        {"ethernet.json", R"({"ethernet": [1, {"control": "x"}]})",
         text(MSG_TYPE_ETHERNET_CONTROL, "2 on"),
         R"({"ethernet": [1, {"control": {"enabled": true}}]})"},
    };
    for (const auto& [name, damaged, message, left] : rows) {
        SCOPED_TRACE(damaged);
        write_document(name, damaged);
        expect_left(name, message, left);
    }
}

TEST_F(UpdateCycle, KeepsMegabytesAndForeignBytesBesideItsOwnMembers)
{
    write_document("power.json", "{\"power\": {\"note\": \"\xff\xfe\xed\xa0\x80\"}, \"long\": \"" +
                                     std::string(4 << 20, 'x') + "\"}");
    send_text(MSG_TYPE_POWER_STATUS, "1");
    settle();
    EXPECT_EQ(value_of("power.json", ".power.power_source"), "Adapter");
    EXPECT_EQ(value_of("power.json", ".long").asString().size(), 4U << 20U);
}

// Whatever stands where, no message ends the service, and what it writes is an object again.
TEST_F(UpdateCycle, SurvivesEveryMessageOnEveryDamagedDocument)
{
    std::vector<std::string> values;
    for (const char* kind : {"null", "true", "-7", "1e300", "\"x\"", "[]", "[[]]", "{}"}) {
        for (const char* form :
             {"@", "[@,@,@,@]",
              R"([{"index":1,"port_type":"UAC","video":@,"audio":@,"generic":@,"charging":@,
                   "control":@,"link":@}])",
              R"([{"index":@,"port_type":@,"video":{"color":@,"hdcp":{"control":@},"timing":@},
                   "audio":{"channel":@},"generic":{"partner":@},
                   "charging":{"control":{"charging_enabled":@}},"control":{"enabled":@}}])"}) {
            values.push_back(std::regex_replace(form, std::regex("@"), kind));
        }
    }
    for (const std::string& value : values) {
        const std::string text = "{\"inputs\":" + value + ",\"usb_c\":" + value +
                                 ",\"ethernet\":" + value + ",\"outputs\":" + value +
                                 ",\"power\":" + value + "}";
        int number = 0;
        for (const Action& message : every_message()) {
            SCOPED_TRACE("message " + std::to_string(++number) + " on " + text);
            for (const char* name : document_names) {
                write_document(name, text);
            }
            message();
            settle();
            for (const char* name : document_names) {
                EXPECT_TRUE(document(name).isObject());
            }
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(UpdateCycle, GoesOnWithAFolderInADocumentsPlace)
{
    for (const char* name : document_names) {
        fs::remove(path_of(name));
        fs::create_directory(path_of(name));
    }
    send_text(MSG_TYPE_POWER_V_VALUE, "7");
    settle();
    EXPECT_EQ(take_standard_error(), "open for write_json_to_file: Is a directory\n");
    send_every_message();
    take_standard_error();
    EXPECT_EQ(events.take_names(), std::vector<std::string>{});

    fs::remove(power_document_path);
    send_text(MSG_TYPE_POWER_V_VALUE, "8");
    settle();
    EXPECT_EQ(document("power.json"), parsed(R"({"power": {"measured_power_current_a": 8}})"));
}
