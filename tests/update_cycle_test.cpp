/// The cycle that changes a document: read, shape, change, write; and documents that something
/// else on the device has damaged.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "store/documents.h"
#include "tests/table_test.h"

namespace fs = std::filesystem;

namespace {

const char* const document_names[] = {"inputs.json", "usb-host.json", "ethernet.json", "power.json",
                                      "outputs.json"};

/// Each document is rewritten by one of them.
constexpr const char* messages[] = {
    "link_status port=1",
    "link_status port=1 isConnect=1",
    "video_status isStable=1",
    "audio_status isStable=1",
    "hdcp_status status=1",
    "hdcp_version 1 1",
    "typec_info PeerDevicePID=1",
    "usb_host_in1 1",
    "usb_host_in2 1",
    "charger_status 1",
    "power_status 1",
    "ethernet_control 3 off",
    "ethernet_status",
    "uac_control 0 1 0",
};

class UpdateCycle : public TableTest {
protected:
    void send_messages()
    {
        for (const char* message : messages) {
            send_line(message);
        }
        settle();
    }
};

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
    std::ifstream reader(power_document.path);
    fs::permissions(power_document.path, fs::perms::owner_all);
    send_messages();
    for (const char* name : document_names) {
        EXPECT_EQ(text_of(name), document(name).toStyledString()) << name;
    }
    const std::string text(std::istreambuf_iterator<char>(reader), {});
    EXPECT_EQ(text, text_of("power.json"));
    EXPECT_LT(text.find("measured_power_voltage_v"), text.find("power_source"));
    EXPECT_EQ(fs::status(power_document.path).permissions(), fs::perms::owner_all);
}

PLAYED_TEST(UpdateCycle, BuildsADeletedDocumentFromTheMembersReported)
PLAYED_TEST(UpdateCycle, BuildsADeletedDocumentForAChangeAlone)
PLAYED_TEST(UpdateCycle, TakesWhatIsOfTheWrongKindForAbsent)

TEST_F(UpdateCycle, TakesATextWithoutAnObjectForAnEmptyDocument)
{
    const std::string open = repeated("[", 100000);
    const std::string close = repeated("]", 100000);
    const std::string texts[] = {
        // clang-format off
        "", R"({"power": {"power_source": "Ad)", "{]", "[]", "[1, {\"power\": 2}]", "17",
        "\"inputs\"", "null", "true", std::string("\0\0\0", 3), "\xef\xbb\xbf{}",
        "\xff\xfe\xc0\x80", "{\"power\": \xff}", "{\"power\": 1e}",
        open, open + close, repeated("{\"inputs\":", 100000), "{\"power\": " + open + close + "}",
        std::string(4 << 20, 'x'),
        // clang-format on
    };
    for (const std::string& text : texts) {
        SCOPED_TRACE(text.substr(0, 60));
        for (Json::Value row :
             rows_of("UpdateCycle.BuildsADeletedDocumentFromTheMembersReported")) {
            row["before"] = text;
            play(row);
        }
    }
}

TEST_F(UpdateCycle, KeepsMegabytesAndForeignBytesBesideItsOwnMembers)
{
    write_document("power.json", "{\"power\": {\"note\": \"\xff\xfe\xed\xa0\x80\"}, \"long\": \"" +
                                     std::string(4 << 20, 'x') + "\"}");
    send_line("power_status 1");
    settle();
    EXPECT_EQ(value_of("power.json", ".power.power_source"), "Adapter");
    EXPECT_EQ(value_of("power.json", ".long").asString().size(), 4U << 20U);
}

TEST_F(UpdateCycle, GoesOnWithAFolderInADocumentsPlace)
{
    for (const char* name : document_names) {
        fs::remove(path_of(name));
        fs::create_directory(path_of(name));
    }
    send_line("power_v_value 7");
    send_messages();
    std::istringstream complaints(take_standard_error());
    for (std::string line; std::getline(complaints, line);) {
        EXPECT_EQ(line, "open for write_json_to_file: Is a directory");
    }
    EXPECT_EQ(events.take_names(), std::vector<std::string>{});

    fs::remove(power_document.path);
    send_line("power_v_value 8");
    settle();
    EXPECT_EQ(document("power.json"), parsed(R"({"power": {"measured_power_current_a": 8}})"));
}
