/// What the files of this folder share about timings. No locks, any thread.
#pragma once

#include "core/messages.h"

// --- timing_validation.cpp ---

/// Frames per second, with fractions where only the line rate is known; 0 where nothing is.
double frame_rate_hz(const VideoTimingFields& timing);

/// Whether a timing can be that of a video signal.
bool is_timing_valid(const VideoTimingFields& timing);

// --- videoip_reader.cpp ---

/// Reads the video driver's timing into `timing`: everything but `port`, and `scan_mode` and
/// the polarities only where the driver names them. 0, or -1 and nothing changed where the
/// file can't be read or is incomplete.
int fill_timing_from_videoip(VideoTimingFields& timing);
