/// The cycle that changes a document: read, shape, change, write; and documents that something
/// else on the device has damaged.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include <json/reader.h>

#include "tests/service.h"

namespace fs = std::filesystem;

namespace {

using UpdateCycle = ServiceTest;

const char* const document_names[] = {"inputs.json", "usb-host.json", "ethernet.json", "power.json",
                                      "outputs.json"};

struct Message {
    std::uint32_t type;
    std::string payload;  // a record or a text
};

std::string bytes_of(std::initializer_list<int> bytes)
{
    return {bytes.begin(), bytes.end()};
}

/// Every message that reaches a document, for both video inputs, in an order in which each one
/// has something to write.
std::vector<Message> every_message()
{
    std::vector<Message> messages = {{7, std::string(52, '\0')},
                                     {8, "1"},
                                     {9, "7"},
                                     {10, "3 on"},
                                     {6, ""},
                                     {11, "1"},
                                     {14, "0 1 1"},
                                     {15, "1"},
                                     {16, "1"}};
    for (const int port : {0, 1}) {
        for (const int on : {1, 0, 1}) {
            VideoTimingFields timing = {static_cast<std::uint8_t>(port),
                                        0,
                                        148500000,
                                        2200,
                                        1920,
                                        44,
                                        148,
                                        88,
                                        67500,
                                        1,
                                        1125,
                                        1080,
                                        5,
                                        36,
                                        4,
                                        60,
                                        1};
            messages.insert(
                messages.end(),
                {
                    {1, bytes_of({port, on, 0, 0, 0, 0, 0, 0, 0, 1, 1, 0, 0, 1, 0, 0})},
                    {5, bytes_of({port, 0, on, 0, 0, 2, 0, 6, 0, 0, 0, 0})},
                    {2, bytes_of({port, on, 0, 0})},
                    {4,
                     std::string(reinterpret_cast<const char*>(&timing), sizeof timing) + "1234"},
                    {17, bytes_of({port, on, 0, 0})},
                    {3, bytes_of({port, 1, on, 0})},
                    {12, std::to_string(port) + " " + std::to_string(on)},
                });
        }
    }
    return messages;
}

Json::Value parsed(const std::string& text)
{
    Json::Value value;
    std::istringstream(text) >> value;
    return value;
}

std::string repeated(const char* text, int count)
{
    std::string result;
    while (count-- > 0) {
        result += text;
    }
    return result;
}

/// Texts in a document's place that hold no object.
std::vector<std::string> texts_without_an_object()
{
    return {
        "",
        "{\"power\": {\"power_source\": \"Ad",
        "{]",
        "[]",
        "[1, {\"power\": 2}]",
        "17",
        "\"inputs\"",
        "null",
        "true",
        std::string("\0\0\0", 3),
        "\xef\xbb\xbf{}",
        "\xff\xfe\xc0\x80",
        "{\"power\": \xff}",
        "{\"power\": 1e}",
        repeated("[", 100000),
        repeated("[", 100000) + repeated("]", 100000),
        repeated("{\"inputs\":", 100000),
        "{\"power\": " + repeated("[", 100000) + repeated("]", 100000) + "}",
        std::string(4 << 20, 'x'),
    };
}

/// What a message leaves in a document that held no object.
const struct {
    const char* name;
    Message message;
    const char* left;
} reports[] = {
    {"inputs.json",
     {MSG_TYPE_HDCP_VERSION, "1 1"},
     R"({"inputs": [{"video": null},
         {"video": {"hdcp": {"control": {"allowed_hdcp_version": "HDCP 1.4"}}}}]})"},
    {"inputs.json",
     {MSG_TYPE_AUDIO_STATUS, std::string("\0\0\1\0\0\2\0\2\0\0\0\0", 12)},
     R"({"inputs": [{"audio": {"connected": true, "signal_present": true, "format": "LPCM",
         "sample_frequency": "48 kHz", "channel": 2}}]})"},
    {"outputs.json",
     {MSG_TYPE_UAC_CONTROL, "0 1 0"},
     R"({"outputs": [{"port_type": "UAC", "index": 1, "audio": {"connected": false,
         "signal_present": false, "format": "N/A", "sample_frequency": "N/A", "channel": 0}}]})"},
    {"power.json",
     {MSG_TYPE_POWER_STATUS, "1"},
     R"({"power": {"power_source": "Adapter", "measured_power_voltage_v": 24000}})"},
    {"usb-host.json",
     {MSG_TYPE_CHARGER_STATUS, "1"},
     R"({"usb_c": [{"charging": {"control": {"charging_enabled": true}}}]})"},
    {"usb-host.json", {MSG_TYPE_USB_HOST_IN2, "1"}, R"({"usb_c": []})"},
};

/// Documents that are objects and yet not of the right shape, and what a message makes of them:
/// what is of the wrong kind counts as absent, all else stays.
const struct {
    const char* name;
    const char* damaged;
    Message message;
    const char* left;
} misshapen[] = {
    {"inputs.json",
     R"({"a": 1, "inputs": {"video": 1}})",
     {MSG_TYPE_HDCP_VERSION, "0 0"},
     R"({"a": 1, "inputs": [{"video": {"hdcp": {"control": {"allowed_hdcp_version": "Off"}}}}]})"},
    {"inputs.json",
     R"({"inputs": [5, "six", [7]]})",
     {MSG_TYPE_HDCP_VERSION, "1 0"},
     R"({"inputs": [5, {"video": {"hdcp": {"control": {"allowed_hdcp_version": "Off"}}}}, [7]]})"},
    {"inputs.json",
     R"({"inputs": [{"b": 2, "video": [1]}]})",
     {MSG_TYPE_HDCP_VERSION, "0 0"},
     R"({"inputs": [{"b": 2, "video": {"hdcp": {"control": {"allowed_hdcp_version": "Off"}}}}]})"},
    {"inputs.json",
     R"({"inputs": [{"video": {"hdcp": {"control": {"allowed_hdcp_version": {}}}}}]})",
     {MSG_TYPE_HDCP_VERSION, "0 0"},
     R"({"inputs": [{"video": {"hdcp": {"control": {"allowed_hdcp_version": "Off"}}}}]})"},
    {"inputs.json",
     R"({"inputs": [{"audio": {"connected": [], "signal_present": "true", "format": {},
         "sample_frequency": [1], "channel": 1e300}}]})",
     {MSG_TYPE_AUDIO_STATUS, std::string(12, '\0')},
     R"({"inputs": [{"audio": {"connected": false, "signal_present": false, "format": "N/A",
         "sample_frequency": "N/A", "channel": 0}}]})"},
    {"inputs.json",
     R"({"inputs": [3, {"port_type": 4}, {"port_type": "UAC", "control": 8, "audio": []}]})",
     {MSG_TYPE_UAC_CONTROL, "0 1 0"},
     R"({"inputs": [3, {"port_type": 4}, {"port_type": "UAC", "control": {"enabled": true},
         "audio": {"connected": false, "signal_present": false, "format": "N/A",
         "sample_frequency": "N/A", "channel": 0}}]})"},
    {"outputs.json",
     R"({"outputs": [[], {"port_type": "UAC", "audio": "x"}]})",
     {MSG_TYPE_UAC_CONTROL, "0 1 1"},
     R"({"outputs": [[], {"port_type": "UAC",
         "audio": {"connected": true, "signal_present": true}}]})"},
    {"power.json",
     R"({"power": [1, 2]})",
     {MSG_TYPE_POWER_STATUS, "0"},
     R"({"power": {"power_source": "PoE", "measured_power_voltage_v": 11900}})"},
    {"power.json",
     R"({"power": {"power_source": 99999999999999999999, "x": -1e300}})",
     {MSG_TYPE_POWER_STATUS, "0"},
     R"({"power": {"power_source": "PoE", "measured_power_voltage_v": 11900, "x": -1e300}})"},
    {"power.json",
     "// note\n{\"power\": /* note */ {\"power_source\": \"x\"}} // note\n",
     {MSG_TYPE_POWER_STATUS, "0"},
     R"({"power": {"power_source": "PoE", "measured_power_voltage_v": 11900}})"},
    {"usb-host.json",
     R"({"usb_c": [7, {"index": 1e300}, {"index": "2"}, {"index": 2.0}]})",
     {MSG_TYPE_USB_HOST_IN2, "1"},
     R"({"usb_c": [7, {"index": null}, {"index": null}, {"index": 2.0, "connected": true}]})"},
    {"usb-host.json",
     R"({"usb_c": [{"generic": {"host_supports_dp_alt_mode": {}}}]})",
     {MSG_TYPE_TYPEC_INFO, std::string(sizeof(TypeC_Info), '\0')},
     R"({"usb_c": [{"connected": true, "charging": {"charging_state": "Unavailable",
         "max_vbus_current_a": 0, "vbus_voltage_nominal_v": 0},
         "generic": {"active_dp_alt_mode_pins": "N/A", "host_supports_dp_alt_mode": null,
         "partner": {"product": "Not Supported", "product_id": "0000", "vendor_id": "0000",
         "vendor": "USB Implementers Forum"}}}]})"},
    {"usb-host.json",
     R"({"usb_c": ["x"]})",
     {MSG_TYPE_CHARGER_STATUS, "1"},
     R"({"usb_c": [{"charging": {"control": {"charging_enabled": true}}}]})"},
    {"usb-host.json",
     R"({"usb_c": [{"charging": {"control": {"charging_enabled": "no"}}}]})",
     {MSG_TYPE_CHARGER_STATUS, "1"},
     R"({"usb_c": [{"charging": {"control": {"charging_enabled": true}}}]})"},
    {"ethernet.json",
     R"({"ethernet": [1, {"control": "x"}]})",
     {MSG_TYPE_ETHERNET_CONTROL, "2 on"},
     R"({"ethernet": [1, {"control": {"enabled": true}}]})"},
    {"ethernet.json",
     R"({"ethernet": 4})",
     {MSG_TYPE_ETHERNET_CONTROL, "2 on"},
     R"({"ethernet": 4})"},
};

}  // namespace

// Readers who hold a document open see it change; its members are sorted, its mode stays.
TEST_F(UpdateCycle, RewritesADocumentInPlace)
{
    std::ifstream reader(power_document_path);
    fs::permissions(power_document_path, fs::perms::owner_all);
    for (const Message& message : every_message()) {
        send_text(message.type, message.payload);
    }
    settle();
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
    for (const auto& report : reports) {
        fs::remove(path_of(report.name));
        send_text(report.message.type, report.message.payload);
        settle();
        EXPECT_EQ(document(report.name), parsed(report.left)) << report.name;
        struct stat status = {};
        stat(path_of(report.name).c_str(), &status);
        EXPECT_EQ(status.st_mode & 07777U, 0644U) << report.name;
    }
}

TEST_F(UpdateCycle, TakesATextWithoutAnObjectForAnEmptyDocument)
{
    for (const std::string& text : texts_without_an_object()) {
        for (const auto& report : reports) {
            write_document(report.name, text);
            send_text(report.message.type, report.message.payload);
            settle();
            EXPECT_EQ(document(report.name), parsed(report.left)) << text.substr(0, 60);
        }
    }
}

TEST_F(UpdateCycle, TakesWhatIsOfTheWrongKindForAbsent)
{
    for (const auto& row : misshapen) {
        write_document(row.name, row.damaged);
        send_text(row.message.type, row.message.payload);
        settle();
        EXPECT_EQ(document(row.name), parsed(row.left)) << row.damaged;
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
        for (const Message& message : every_message()) {
            for (const char* name : document_names) {
                write_document(name, text);
            }
            send_text(message.type, message.payload);
            settle();
            for (const char* name : document_names) {
                EXPECT_TRUE(document(name).isObject()) << message.type << " " << text;
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
    for (const Message& message : every_message()) {
        send_text(message.type, message.payload);
    }
    settle();
    take_standard_error();
    EXPECT_EQ(events.take_names(), std::vector<std::string>{});

    fs::remove(power_document_path);
    send_text(MSG_TYPE_POWER_V_VALUE, "8");
    settle();
    EXPECT_EQ(document("power.json"), parsed(R"({"power": {"measured_power_current_a": 8}})"));
}
