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
    const auto* report = static_cast<const CmdDataVideoStatus*>(payload);
    LOG_INFO(
        "CmdDataVideoStatus v-port=%d, isStable=%d, isMute=%d, hactive=%d, vactive=%d, "
        "frameRate=%d, colorspace=%d, deepcolor=%d, aspectRatio=%d, "
        "interlaced=%d,color_range=%d",
        report->port, report->isStable, report->isMute, report->hactive, report->vactive,
        report->frameRate, report->colorspace, report->deepcolor, report->aspectRatio,
        report->interlaced, report->color_range);
    apply_video_status(report);
}

void handle_audio_status(const MessageHeader* /*header*/, const void* payload)
{
    const auto* report = static_cast<const CmdDataAudioStatus*>(payload);
    LOG_INFO(
        "CmdDataAudioStatus a->port=%d,a->fromPort=%d,a->isStable=%d,a->isMute=%d,"
        "a->audioCoding=%d,a->sampleFreq=%d,a->sampleDepth=%d,a->channels=%d,a->audType=%d",
        report->port, report->fromPort, report->isStable, report->isMute, report->audioCoding,
        report->sampleFreq, report->sampleDepth, report->channels, report->audType);
    apply_audio_status(report);
}

void handle_link_status(const MessageHeader* /*header*/, const void* payload)
{
    const auto* report = static_cast<const CmdDataLinkStatus*>(payload);
    LOG_INFO("CmdDataLinkStatus l-port=%d, isConnect=%d, isHpd=%d", report->port, report->isConnect,
             report->isHpd);
    apply_link_status(report);
}

void handle_ethernet_status(const MessageHeader* /*header*/, const void* /*payload*/)
{
    LOG_INFO("Ethernet status received");
    update_ethernet_status();
}

void handle_video_timing(const MessageHeader* /*header*/, const void* payload)
{
    CmdDataVideoTiming report;
    std::memcpy(&report, payload, sizeof report);
    const VideoTimingFields& timing = report.timing;
    if (!accept_reported_timing(timing, report.current_play_port)) {
        return;
    }
    LOG_INFO(
        "CmdDataVideoTiming l-port=%d, current_play_port=%d, scan_mode=%d, pixel_clock=%u, "
        "h_total_pixels=%u, h_active_pixels=%u, h_sync_pulse_width=%u, "
        "h_sync_back_porch=%u, h_sync_front_porch=%u, h_sync_frequency_hz=%u, "
        "h_sync_polarity=%u, v_total_pixels=%u, v_active_pixels=%u, "
        "v_sync_pulse_width=%u, v_sync_back_porch=%u, v_sync_front_porch=%u, "
        "v_sync_frequency_hz=%u, v_sync_polarity=%u",
        timing.port, report.current_play_port, timing.scan_mode, timing.pixel_clock,
        timing.h_total_pixels, timing.h_active_pixels, timing.h_sync_pulse_width,
        timing.h_sync_back_porch, timing.h_sync_front_porch, timing.h_sync_frequency_hz,
        timing.h_sync_polarity, timing.v_total_pixels, timing.v_active_pixels,
        timing.v_sync_pulse_width, timing.v_sync_back_porch, timing.v_sync_front_porch,
        timing.v_sync_frequency_hz, timing.v_sync_polarity);
    publish_timing(timing);
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
    const auto* report = static_cast<const CmdDataHDCPStatus*>(payload);
    LOG_INFO("CmdDataHDCPStatus h-port=%d, isEncrypted=%d, status=%d", report->port,
             report->isEncrypted, report->status);
    apply_hdcp_status(report);
}

void handle_hdmi_video_mode(const MessageHeader* /*header*/, const void* payload)
{
    const auto* report = static_cast<const CmdDataHdmiVideoMode*>(payload);
    LOG_INFO("CmdDataHdmiVideoMode port=%d, mode=%d", report->port, report->mode);
    apply_hdmi_video_mode(report);
}

void handle_typec_info(const MessageHeader* /*header*/, const void* payload)
{
    const auto* report = static_cast<const TypeC_Info*>(payload);
    LOG_INFO(
        "TypeC_Info ChargingState=%d, ChargingMode=%d, Charging_mV=%u, Charging_mA=%u, "
        "Power_Role=%d, Data_Role=%d, Plug_Orientation=%d, Remote_DpMode_Support=%d, "
        "DpMode_Active=%d, PeerDeviceVID=0x%04X, PeerDevicePID=0x%04X, "
        "PeerDeviceMFT_String=%s, PinAssignment=%d, RemotePdSupport=%d, "
        "RemotePdRevision=%d",
        report->ChargingState, report->ChargingMode, report->Charging_mV, report->Charging_mA,
        report->Power_Role, report->Data_Role, report->Plug_Orientation,
        report->Remote_DpMode_Support, report->DpMode_Active, report->PeerDeviceVID,
        report->PeerDevicePID, manufacturer_text(*report).text, report->PinAssignment,
        report->RemotePdSupport, report->RemotePdRevision);
    update_usb_c_port(report);
}
