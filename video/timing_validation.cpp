/// The test that every timing passes before it is published, whether the video pipeline has
/// reported it or the driver gives it.
#include "core/log.h"
#include "video/timing.h"
#include "video/video.h"

namespace {

constexpr double lowest_frame_rate_hz = 10.0;
constexpr double highest_frame_rate_hz = 240.0;

/// One direction of a timing: the blanking must hold the sync pulse and the back porch. The
/// front porch is what is left over.
bool is_direction_valid(std::uint32_t total, std::uint32_t active, std::uint32_t sync_pulse_width,
                        std::uint32_t back_porch)
{
    return active != 0 && total > active && total - active >= sync_pulse_width + back_porch;
}

}  // namespace

double frame_rate_hz(const VideoTimingFields& timing)
{
    if (timing.v_sync_frequency_hz != 0) {
        return timing.v_sync_frequency_hz;
    }
    if (timing.h_sync_frequency_hz != 0 && timing.v_total_pixels != 0) {
        return static_cast<double>(timing.h_sync_frequency_hz) / timing.v_total_pixels;
    }
    return 0.0;
}

bool is_timing_valid(const VideoTimingFields& timing)
{
    if (timing.pixel_clock == 0 ||
        !is_direction_valid(timing.h_total_pixels, timing.h_active_pixels,
                            timing.h_sync_pulse_width, timing.h_sync_back_porch) ||
        !is_direction_valid(timing.v_total_pixels, timing.v_active_pixels,
                            timing.v_sync_pulse_width, timing.v_sync_back_porch)) {
        return false;
    }
    const double rate = frame_rate_hz(timing);
    return rate == 0.0 || (rate >= lowest_frame_rate_hz && rate <= highest_frame_rate_hz);
}

bool accept_reported_timing(const VideoTimingFields& timing, std::uint8_t current_play_port)
{
    if (is_timing_valid(timing)) {
        return true;
    }
    LOG_INFO(
        "Ignore invalid reported timing. port=%d current_play_port=%d pixel_clock=%u "
        "h_total=%u h_active=%u v_total=%u v_active=%u v_freq=%u",
        timing.port, current_play_port, timing.pixel_clock, timing.h_total_pixels,
        timing.h_active_pixels, timing.v_total_pixels, timing.v_active_pixels,
        timing.v_sync_frequency_hz);
    return false;
}
