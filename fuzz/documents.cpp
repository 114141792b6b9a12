/// A document as anything on the device may have left it, under each message that touches it.
/// The first byte chooses the document, the rest is its text.
#include <iterator>
#include <vector>

#include "core/messages.h"
#include "fuzz/device.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

struct Touch {
    std::size_t document;
    std::string datagram;
};

template <typename Record>
std::string record_datagram(std::uint32_t type, const Record& record)
{
    return datagram(type, {reinterpret_cast<const char*>(&record), sizeof record});
}

std::vector<Touch> make_touches()
{
    CmdDataVideoTiming timing = {};
    timing.timing = {1, 0,    148500000, 2200, 1920, 44, 148, 88, 67500,
                     1, 1125, 1080,      5,    36,   4,  60,  1};
    const CmdDataVideoStatus stable = {1, 1, 0, 0, 1920, 1080, 60, 2, 1, 0, 0, 2, {}};
    const CmdDataVideoStatus lost = {};
    const CmdDataLinkStatus up = {0, 1, 1, 0};
    const CmdDataLinkStatus down = {1, 0, 0, 0};
    const CmdDataAudioStatus audio = {1, 0, 1, 0, 0, 2, 0, 2, 0, {}};
    const CmdDataAudioStatus no_audio = {};
    const CmdDataHDCPStatus hdcp = {0, 1, 2, 0};
    const CmdDataHdmiVideoMode dvi = {0, 2, {}};
    TypeC_Info partner = {};
    partner.PeerDevicePID = 1;
    return {
        {0, record_datagram(MSG_TYPE_LINK_STATUS, up)},
        {0, record_datagram(MSG_TYPE_LINK_STATUS, down)},
        {0, record_datagram(MSG_TYPE_VIDEO_STATUS, stable)},
        {0, record_datagram(MSG_TYPE_VIDEO_STATUS, lost)},
        {0, record_datagram(MSG_TYPE_VIDEO_TIMING, timing)},
        {0, record_datagram(MSG_TYPE_HDMI_VIDEO_MODE, dvi)},
        {0, record_datagram(MSG_TYPE_HDCP_STATUS, hdcp)},
        {0, datagram(MSG_TYPE_HDCP_VERSION, "1 1")},
        {0, record_datagram(MSG_TYPE_AUDIO_STATUS, audio)},
        {0, record_datagram(MSG_TYPE_AUDIO_STATUS, no_audio)},
        {0, datagram(MSG_TYPE_UAC_CONTROL, "0 1 1")},
        {1, record_datagram(MSG_TYPE_TYPEC_INFO, partner)},
        {1, record_datagram(MSG_TYPE_LINK_STATUS, down)},
        {1, datagram(MSG_TYPE_CHARGER_STATUS, "1")},
        {1, datagram(MSG_TYPE_USB_HOST_IN1, "1")},
        {1, datagram(MSG_TYPE_USB_HOST_IN2, "1")},
        {2, datagram(MSG_TYPE_ETHERNET_STATUS, "")},
        {2, datagram(MSG_TYPE_ETHERNET_CONTROL, "4 on 1")},
        {3, datagram(MSG_TYPE_POWER_STATUS, "1")},
        // Two, so that one of them is not a repetition.
        {3, datagram(MSG_TYPE_POWER_V_VALUE, "1")},
        {3, datagram(MSG_TYPE_POWER_V_VALUE, "2")},
        {4, datagram(MSG_TYPE_UAC_CONTROL, "0 1 0")},
    };
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const std::vector<Touch> touches = make_touches();
    if (size == 0) {
        return 0;
    }
    const Document& document = documents[data[0] % std::size(documents)];
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    for (const Touch& touch : touches) {
        if (&documents[touch.document] == &document) {
            restore_state();
            write_text(document.path, text);
            deliver(touch.datagram);
            if (read_text(document.path) != text) {
                sound_document(document);
            }
        }
    }
    return 0;
}
