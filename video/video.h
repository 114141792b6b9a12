/// What is reported about the video inputs, published in `inputs.json`. All of it runs on the
/// dispatch thread, and what publishes takes `document_mutex`. Nothing is reported to the
/// caller: a report that can't be applied is dropped, a write that fails is told by the writer.
#pragma once

#include <cstdint>

#include "core/messages.h"

// --- video_status.cpp ---

/// Publishes whether a signal is present and its colour format; empties the input when the
/// signal is lost. Dropped while the link of the input is down.
void apply_video_status(const CmdDataVideoStatus* report);

// --- link_status.cpp ---

/// Publishes whether an input is connected and opens or closes the gate for its other reports.
/// Link down empties the input, and the partner of the USB-C port with the USB-C input.
void apply_link_status(const CmdDataLinkStatus* report);

// --- hdmi_video_mode.cpp ---

/// Publishes whether the HDMI input receives HDMI or DVI. Dropped while its link is down.
void apply_hdmi_video_mode(const CmdDataHdmiVideoMode* report);

// --- timing_validation.cpp ---

/// Whether a timing that the video pipeline has reported can be that of a video signal; one that
/// can't is logged. Takes no lock.
bool accept_reported_timing(const VideoTimingFields& timing, std::uint8_t current_play_port);

// --- timing_publication.cpp ---

/// Publishes a valid timing. Dropped while the input has no link or no signal; one that equals
/// the last costs no file access.
void publish_timing(const VideoTimingFields& timing);

// --- current_play_timing.cpp ---

/// Publishes the timing that the video driver gives for an input that has started to play: port
/// 0 HDMI, 1 USB-C. Another port, a timing that can't be read and one that is invalid are logged
/// and change nothing.
void refresh_current_play_timing(std::uint8_t port);

// --- hdcp.cpp ---

/// Publishes the HDCP version that the signal of an input uses. Dropped while its link is down.
void apply_hdcp_status(const CmdDataHDCPStatus* report);

/// Publishes the HDCP version that an input allows, whether it has a link or not: port 1 USB-C,
/// every other HDMI; capability 0 none, 1 HDCP 1.4, every other HDCP 2.2.
void apply_hdcp_version(int hdcp_port, int hdcp_cap);
