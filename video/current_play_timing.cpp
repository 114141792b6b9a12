/// The timing of an input that has started to play, as the video driver gives it.
#include "core/log.h"
#include "video/timing.h"
#include "video/video.h"

void refresh_current_play_timing(std::uint8_t port)
{
    if (port > 1) {
        LOG_INFO("unsupported current play port: %u", port);
        return;
    }
    VideoTimingFields timing = {};
    timing.port = port;
    if (fill_timing_from_videoip(timing) != 0) {
        LOG_INFO("fill_timing_from_videoip failed for current play port=%u", port);
        return;
    }
    if (!is_timing_valid(timing)) {
        LOG_INFO("videoip timing is invalid for current play port=%u", port);
        return;
    }
    LOG_INFO("refresh current play timing from videoip. port=%d", port);
    publish_timing(timing);
}
