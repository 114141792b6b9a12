/// Kills: at each system call of a change, and at any moment under load. What they leave is
/// described, and the next start works on it.
#include <chrono>
#include <cstdio>
#include <random>
#include <thread>

#include "tests/tool.h"
#include "tests/traced_service.h"

namespace {

struct Change {
    const char* document;
    const char* message;
};
/// Each is written even where it repeats what the document says.
const Change changes[] = {
    {"inputs.json", "uac_control 0 0 0"},        {"usb-host.json", "usb_host_in1 1"},
    {"ethernet.json", "ethernet_control 2 off"}, {"power.json", "power_status 1"},
    {"outputs.json", "uac_control 0 0 0"},
};

class Kills : public TracedServiceTest {
protected:
    static void send_changes()
    {
        for (const Change& change : changes) {
            send_line(change.message);
        }
    }

    /// `statusctl check` finds a document that was left empty.
    static void expect_finding(const std::string& name)
    {
        EXPECT_NE(Tool({"check"}).wait(), 0);
        EXPECT_NE(Tool::output().find("PROBLEM  " + name + ": empty"), std::string::npos);
    }

    /// A start over what the killed run has left: three documents stay as they are, two are
    /// seeded, and then every change is published.
    void expect_restart()
    {
        const std::string kept[] = {"inputs.json", "ethernet.json", "outputs.json"};
        std::vector<std::string> texts;
        for (const std::string& name : kept) {
            texts.push_back(text_of(name));
        }
        start();
        for (std::size_t i = 0; i < texts.size(); ++i) {
            EXPECT_EQ(text_of(kept[i]), texts[i]) << kept[i];
        }
        EXPECT_EQ(text_of("usb-host.json").size(), 1096U);
        EXPECT_EQ(text_of("power.json").size(), 121U);
        // Only a status update builds what is left of an empty document.
        send_line("ethernet_status");
        send_changes();
        settle();
        // The last entry, be it of three or the only one.
        const Json::Value inputs = document("inputs.json")["inputs"];
        EXPECT_EQ(inputs[inputs.size() - 1]["control"]["enabled"], false);
        EXPECT_EQ(value_of("usb-host.json", ".usb_c[0].connected"), true);
        EXPECT_EQ(value_of("ethernet.json", ".ethernet[1].control.enabled"), false);
        EXPECT_EQ(value_of("power.json", ".power.power_source"), "Adapter");
        EXPECT_EQ(value_of("outputs.json", ".outputs[0].audio.connected"), false);
    }
};

}  // namespace

TEST_F(Kills, AtEachCallOfAChangeLeaveTheOldTextNoneOrTheNew)
{
    struct Row {
        const char* call;
        int when;
        enum { old, empty, changed } left;
    };
    constexpr Row rows[] = {
        {"openat", 1, Row::old},    {"read", 1, Row::old},      {"close", 1, Row::old},
        {"openat", 2, Row::old},    {"flock", 1, Row::empty},   {"write", 1, Row::empty},
        {"fsync", 1, Row::changed}, {"flock", 2, Row::changed}, {"close", 2, Row::changed},
    };
    for (const Change& change : changes) {
        for (const Row& row : rows) {
            SCOPED_TRACE(std::string(change.document) + ", " + row.call + " " +
                         std::to_string(row.when));
            const std::string before = text_of(change.document);
            const std::string injection = only_on(path_of(change.document)) +
                                          "-e inject=" + row.call +
                                          ":signal=KILL:when=" + std::to_string(row.when);
            under(
                injection, [&] { send_line(change.message); }, [&] { EXPECT_EQ(wait_exit(), -1); });
            if (row.left == Row::changed) {
                EXPECT_FALSE(document(change.document).empty());
            } else {
                EXPECT_EQ(text_of(change.document), row.left == Row::old ? before : "");
            }
            if (row.call == std::string("write")) {
                expect_finding(change.document);
            }
            expect_restart();
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(Kills, AtAnyMomentUnderLoadLeaveGroundForTheNextStart)
{
    std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): each run is the same
    int empty = 0;
    int partial = 0;
    const int rounds = 150 * load_factor();
    for (int round = 0; round < rounds; ++round) {
        for (int i = 0; i < 4; ++i) {
            send_changes();
            send_line("ethernet_status");
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
        stop();
        for (const Change& change : changes) {
            const std::string text = text_of(change.document);
            empty += text.empty() ? 1 : 0;
            partial += !text.empty() && text.back() != '\n' ? 1 : 0;
            EXPECT_EQ(text.substr(0, 1), text.empty() ? "" : "{");
        }
        expect_restart();
        ASSERT_FALSE(HasFailure());
    }
    std::printf("%d kills: %d documents left empty, %d partial, the others whole\n", rounds, empty,
                partial);
}
