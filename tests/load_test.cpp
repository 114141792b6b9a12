/// Many messages: no event is lost, nothing grows, and the documents say what came last.
#include <filesystem>
#include <map>
#include <random>

#include "tests/service.h"

namespace fs = std::filesystem;

namespace {

struct Resources {
    long resident_kib;
    std::ptrdiff_t descriptors;
    std::ptrdiff_t threads;
};

class Load : public ServiceTest {
protected:
    void count_events()
    {
        for (const std::string& name : events.take_names()) {
            ++counts_[name];
        }
    }

    /// Any message but those of the Ethernet ports, mostly a sound one.
    void send_any()
    {
        constexpr std::pair<std::uint32_t, std::size_t> records[] = {
            {1, 16}, {2, 4}, {3, 4}, {5, 12}, {7, 52}, {17, 4}, {4, 40}};
        constexpr std::uint32_t text_types[] = {8, 9, 11, 12, 14, 15, 16, 18, 0, 13, 99};
        const std::size_t choice = random_() % (std::size(records) + std::size(text_types));
        if (choice >= std::size(records)) {
            send_text(text_types[choice - std::size(records)],
                      number() + " " + number() + " " + number());
            return;
        }
        const auto [type, size] = records[choice];
        std::string payload(size, '\0');
        for (char& byte : payload) {
            byte = static_cast<char>(random_() % 4);
        }
        send(type, static_cast<std::uint32_t>(size), payload);
        if (random_() % 16 == 0) {
            send(payload);
        }
    }

    /// Leaves nothing as it was, whatever was said before.
    std::map<std::string, std::string> texts_after_last_messages()
    {
        for (const std::string port : {" port=0", " port=1"}) {
            for (const char* report :
                 {"link_status isConnect=0", "link_status isConnect=1 isHpd=1",
                  "video_status isStable=1 colorspace=1 deepcolor=1 color_range=1", "1080p60",
                  "hdcp_status status=2", "audio_status isStable=1 sampleFreq=2 channels=2"}) {
                send_line(report + port);
            }
        }
        for (const char* message :
             {"hdcp_version 0 1", "hdcp_version 1 1", "hdmi_video_mode mode=2", "power_status 1",
              "power_v_value 1", "power_v_value 2", "charger_status 1", "uac_control 0 1 1",
              "usb_host_in2 1", "usb_host_in1 1", "ethernet_control 3 off",
              "ethernet_control 4 on 1", "ethernet_status", "typec_info PeerDeviceVID=0x1D6B"}) {
            send_line(message);
        }
        settle();
        return texts();
    }

    Resources resources() const
    {
        const fs::path process = "/proc/" + std::to_string(service_pid());
        const auto entries = [&](const char* folder) {
            return std::distance(fs::directory_iterator(process / folder), {});
        };
        const std::string status = read_file(process / "status");
        return {std::stol(status.substr(status.find("VmRSS:") + 6)), entries("fd"),
                entries("task")};
    }

    std::map<std::string, int> counts_;

private:
    std::string number() { return std::to_string(static_cast<int>(random_() % 5) - 1); }

    std::mt19937 random_{1};  // NOLINT(cert-msc32-c,cert-msc51-cpp): each run is the same
};

}  // namespace

TEST_F(Load, LosesNoEventWhereTheDelayedOneMeetsAFloodOfOthers)
{
    int sent = 0;
    for (int round = 1; round <= load_factor(); ++round) {
        send_line(round % 2 == 0 ? "hdcp_version 0 1" : "hdcp_version 0 0");
        wait_until("the delayed event", [&] {
            count_events();
            while (sent - counts_["e_power_json_update"] < 64) {
                send_line("power_status 1");
                ++sent;
            }
            return counts_["e_input_json_update"] == round;
        });
    }
    settle();
    count_events();
    EXPECT_EQ(counts_["e_power_json_update"], sent);
    std::printf("%d direct events\n", sent);
}

TEST_F(Load, LeavesNothingBehind)
{
    const int batches = 200 * load_factor();
    Resources before = {};
    for (int batch = 1; batch <= batches; ++batch) {
        for (int i = 0; i < 90; ++i) {
            send_any();
        }
        // All before it is done when its event comes.
        send_line("ethernet_status");
        wait_until("the batch", [&] {
            count_events();
            return counts_["e_ethernet_json_update"] == batch;
        });
        ASSERT_FALSE(HasFailure());
        if (batch == batches / 10) {
            settle();
            before = resources();
        }
    }
    // An event is heard before its socket is closed, and the timer's thread ends by itself.
    Resources after = {};
    wait_until("no more threads and descriptors than before", [&] {
        after = resources();
        return after.threads <= before.threads && after.descriptors <= before.descriptors;
    });
    std::printf("%d messages: resident %ld KiB, then %ld KiB\n", 91 * batches, before.resident_kib,
                after.resident_kib);
#ifndef SANITIZED
    if (!has_stand_in()) {
        EXPECT_LT(after.resident_kib, before.resident_kib + 512);
    }
#endif
    for (const std::string& message : log_messages()) {
        EXPECT_EQ(message.find("overflow"), std::string::npos) << message;
    }

    const auto soaked = texts_after_last_messages();
    stop();
    ServiceTest::SetUp();
    EXPECT_EQ(soaked, texts_after_last_messages());
}
