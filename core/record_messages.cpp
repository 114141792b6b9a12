/// The messages of the dispatch table: each is logged, a record with its fields, and applied.
#include <cstdlib>
#include <cstring>

#include "audio/audio.h"
#include "core/core.h"
#include "core/log.h"
#include "ethernet/ethernet.h"
#include "usb_power/usb_power.h"
#include "video/video.h"

void handle_video_status(const MessageHeader* /*header*/, const void* payload)
{
    const auto* v = static_cast<const CmdDataVideoStatus*>(payload);
    LOG_INFO(
        "CmdDataVideoStatus v-port=%d, isStable=%d, isMute=%d, hactive=%d, vactive=%d, "
        "frameRate=%d, colorspace=%d, deepcolor=%d, aspectRatio=%d, "
        "interlaced=%d,color_range=%d",
        v->port, v->isStable, v->isMute, v->hactive, v->vactive, v->frameRate, v->colorspace,
        v->deepcolor, v->aspectRatio, v->interlaced, v->color_range);
    apply_video_status(v);
}

void handle_audio_status(const MessageHeader* /*header*/, const void* payload)
{
    const auto* a = static_cast<const CmdDataAudioStatus*>(payload);
    LOG_INFO(
        "CmdDataAudioStatus a->port=%d,a->fromPort=%d,a->isStable=%d,a->isMute=%d,"
        "a->audioCoding=%d,a->sampleFreq=%d,a->sampleDepth=%d,a->channels=%d,a->audType=%d",
        a->port, a->fromPort, a->isStable, a->isMute, a->audioCoding, a->sampleFreq, a->sampleDepth,
        a->channels, a->audType);
    apply_audio_status(a);
}

void handle_link_status(const MessageHeader* /*header*/, const void* payload)
{
    const auto* l = static_cast<const CmdDataLinkStatus*>(payload);
    LOG_INFO("CmdDataLinkStatus l-port=%d, isConnect=%d, isHpd=%d", l->port, l->isConnect,
             l->isHpd);
    apply_link_status(l);
}

void handle_ethernet_status(const MessageHeader* /*header*/, const void* /*payload*/)
{
    LOG_INFO("Ethernet status received");
    update_ethernet_status();
}

void handle_video_timing(const MessageHeader* /*header*/, const void* payload)
{
    CmdDataVideoTiming message;
    std::memcpy(&message, payload, sizeof message);
    const VideoTimingFields& t = message.timing;
    if (!accept_reported_timing(t, message.current_play_port)) {
        return;
    }
    LOG_INFO(
        "CmdDataVideoTiming l-port=%d, current_play_port=%d, scan_mode=%d, pixel_clock=%u, "
        "h_total_pixels=%u, h_active_pixels=%u, h_sync_pulse_width=%u, "
        "h_sync_back_porch=%u, h_sync_front_porch=%u, h_sync_frequency_hz=%u, "
        "h_sync_polarity=%u, v_total_pixels=%u, v_active_pixels=%u, "
        "v_sync_pulse_width=%u, v_sync_back_porch=%u, v_sync_front_porch=%u, "
        "v_sync_frequency_hz=%u, v_sync_polarity=%u",
        t.port, message.current_play_port, t.scan_mode, t.pixel_clock, t.h_total_pixels,
        t.h_active_pixels, t.h_sync_pulse_width, t.h_sync_back_porch, t.h_sync_front_porch,
        t.h_sync_frequency_hz, t.h_sync_polarity, t.v_total_pixels, t.v_active_pixels,
        t.v_sync_pulse_width, t.v_sync_back_porch, t.v_sync_front_porch, t.v_sync_frequency_hz,
        t.v_sync_polarity);
    publish_timing(t);
}

/// Carries its port as text, yet is looked up by the table: its length tells whether there is
/// a port at all.
void handle_video_start_working(const MessageHeader* header, const void* payload)
{
    if (header->length == 0) {
        LOG_INFO("missing current play port for video start working message");
        return;
    }
    const int port = std::atoi(static_cast<const char*>(payload));
    if (port != 0 && port != 1) {
        LOG_INFO("invalid current play port for video start working message: %d", port);
        return;
    }
    refresh_current_play_timing(static_cast<std::uint8_t>(port));
}

void handle_hdcp_status(const MessageHeader* /*header*/, const void* payload)
{
    const auto* h = static_cast<const CmdDataHDCPStatus*>(payload);
    LOG_INFO("CmdDataHDCPStatus h-port=%d, isEncrypted=%d, status=%d", h->port, h->isEncrypted,
             h->status);
    apply_hdcp_status(h);
}

void handle_hdmi_video_mode(const MessageHeader* /*header*/, const void* payload)
{
    const auto* m = static_cast<const CmdDataHdmiVideoMode*>(payload);
    LOG_INFO("CmdDataHdmiVideoMode port=%d, mode=%d", m->port, m->mode);
    apply_hdmi_video_mode(m);
}

void handle_typec_info(const MessageHeader* /*header*/, const void* payload)
{
    const auto* c = static_cast<const TypeC_Info*>(payload);
    LOG_INFO(
        "TypeC_Info ChargingState=%d, ChargingMode=%d, Charging_mV=%u, Charging_mA=%u, "
        "Power_Role=%d, Data_Role=%d, Plug_Orientation=%d, Remote_DpMode_Support=%d, "
        "DpMode_Active=%d, PeerDeviceVID=0x%04X, PeerDevicePID=0x%04X, "
        "PeerDeviceMFT_String=%s, PinAssignment=%d, RemotePdSupport=%d, "
        "RemotePdRevision=%d",
        c->ChargingState, c->ChargingMode, c->Charging_mV, c->Charging_mA, c->Power_Role,
        c->Data_Role, c->Plug_Orientation, c->Remote_DpMode_Support, c->DpMode_Active,
        c->PeerDeviceVID, c->PeerDevicePID, manufacturer_text(*c).text, c->PinAssignment,
        c->RemotePdSupport, c->RemotePdRevision);
    update_usb_c_port(c);
}
