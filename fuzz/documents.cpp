/// All five documents with one text, as anything on the device may have left them, under each
/// message that touches one.
#include "fuzz/device.h"
#include "tools/statusctl/compose_datagram.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr const char* timing =
    "video_timing port=1 pixel_clock=148500000 h_total_pixels=2200 h_active_pixels=1920 "
    "v_total_pixels=1125 v_active_pixels=1080 v_sync_frequency_hz=60";

constexpr const char* touches[] = {
    "link_status isConnect=1 isHpd=1",
    "link_status port=1 isConnect=0",
    "video_status port=1 isStable=1 colorspace=2 deepcolor=1 color_range=2",
    "video_status",
    timing,
    "hdmi_video_mode mode=2",
    "hdcp_status status=2",
    "hdcp_version 1 1",
    "audio_status port=1 isStable=1 sampleFreq=2 channels=2",
    "audio_status",
    "uac_control 0 1 1",
    "uac_control 0 1 0",
    "typec_info PeerDevicePID=1",
    "charger_status 1",
    "usb_host_in1 1",
    "usb_host_in2 1",
    "ethernet_status",
    "ethernet_control 4 on 1",
    "power_status 1",
    // Two, so that one of them is not a repetition.
    "power_v_value 1",
    "power_v_value 2",
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (const char* touch : touches) {
        restore_state();
        for (const StatusDocument& document : status_documents) {
            if (read_text(document.path) != text) {
                write_text(document.path, text);
            }
        }
        deliver(statusctl::datagram_from_words(statusctl::split_words(touch)));
        for (const StatusDocument& document : status_documents) {
            if (read_text(document.path) != text) {
                sound_document(document);
            }
        }
    }
    return 0;
}
