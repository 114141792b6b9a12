/// The audio of the video inputs and the USB Audio Class port, published in `inputs.json` and
/// `outputs.json`. All of it runs on the dispatch thread and takes `document_mutex`; nothing is
/// reported to the caller.
#pragma once

#include "core/messages.h"

// --- input_audio_status.cpp ---

/// Publishes the audio of a video input, or that there is none. Dropped while the link of the
/// input is down. Writes only what differs from the document.
void apply_audio_status(const CmdDataAudioStatus* report);

// --- uac_port.cpp ---

/// Publishes whether the USB Audio Class port is enabled (1) and, with that, whether audio
/// runs: it does while neither `enabled` nor `uac_plug_flag` is 0. `uac_port` selects nothing.
/// Every call rewrites both documents.
void apply_uac_control(int uac_port, int enabled, int uac_plug_flag);
