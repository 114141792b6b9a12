/// Timing publication: the timing of a video input and what follows from it.
#include <cstdio>
#include <mutex>

#include "core/shared_state.h"
#include "store/documents.h"
#include "store/input_entries.h"
#include "store/json_access.h"
#include "store/store.h"
#include "video/timing.h"
#include "video/video.h"
#include "video/video_codes.h"
#include "video/video_inputs.h"

namespace {

/// Takes the whole timing into the cache; true where any of it differs.
bool take_timing(InputCache& cache, const VideoTimingFields& timing)
{
    const InputCache before = cache;
    cache.scan_mode = timing.scan_mode;
    cache.pixel_clock = timing.pixel_clock;
    cache.h_total_pixels = timing.h_total_pixels;
    cache.h_active_pixels = timing.h_active_pixels;
    cache.h_sync_pulse_width = timing.h_sync_pulse_width;
    cache.h_sync_back_porch = timing.h_sync_back_porch;
    cache.h_sync_front_porch = timing.h_sync_front_porch;
    cache.h_sync_frequency_hz = timing.h_sync_frequency_hz;
    cache.v_total_pixels = timing.v_total_pixels;
    cache.v_active_pixels = timing.v_active_pixels;
    cache.v_sync_pulse_width = timing.v_sync_pulse_width;
    cache.v_sync_back_porch = timing.v_sync_back_porch;
    cache.v_sync_front_porch = timing.v_sync_front_porch;
    cache.v_sync_frequency_hz = timing.v_sync_frequency_hz;
    // These are reported wider than they are kept: one above 255 differs from whatever is kept.
    const bool h_polarity_changed = take(cache.h_sync_polarity, timing.h_sync_polarity);
    const bool v_polarity_changed = take(cache.v_sync_polarity, timing.v_sync_polarity);
    return h_polarity_changed || v_polarity_changed || cache != before;
}

Json::Value resolution_text(unsigned width, unsigned height)
{
    char text[32] = "";
    static_cast<void>(std::snprintf(text, sizeof text, "%ux%u", width, height));
    return text;
}

void set_timing(Json::Value& object, const VideoTimingFields& timing)
{
    object["scan"] = text_of_code(scan_texts, timing.scan_mode, "N/A");
    object["pixel_clock_hz"] = Json::UInt{timing.pixel_clock};
    object["h_total_pixels"] = Json::Int{timing.h_total_pixels};
    object["h_active_pixels"] = Json::Int{timing.h_active_pixels};
    object["h_sync_pulse_width"] = Json::Int{timing.h_sync_pulse_width};
    object["h_sync_back_porch"] = Json::Int{timing.h_sync_back_porch};
    object["h_sync_front_porch"] = Json::Int{timing.h_sync_front_porch};
    object["h_sync_frequency_hz"] = Json::UInt{timing.h_sync_frequency_hz};
    object["h_sync_polarity"] = text_of_code(polarity_texts, timing.h_sync_polarity, "N/A");
    object["v_total_pixels"] = Json::Int{timing.v_total_pixels};
    object["v_active_pixels"] = Json::Int{timing.v_active_pixels};
    object["v_sync_pulse_width"] = Json::Int{timing.v_sync_pulse_width};
    object["v_sync_back_porch"] = Json::Int{timing.v_sync_back_porch};
    object["v_sync_front_porch"] = Json::Int{timing.v_sync_front_porch};
    object["v_sync_frequency_hz"] = Json::Int{timing.v_sync_frequency_hz};
    object["v_sync_polarity"] = text_of_code(polarity_texts, timing.v_sync_polarity, "N/A");
}

}  // namespace

void publish_timing(const VideoTimingFields& timing)
{
    const std::lock_guard<std::mutex> lock(document_mutex);
    const unsigned position = input_position(timing.port);
    InputCache& cache = input_cache[position];
    if (cache.connected == 0 || cache.isStable == 0 || !take_timing(cache, timing)) {
        return;
    }

    Json::Value root = read_document(inputs_document.path);
    Json::Value& video = input_video(root, position);
    video["embedded_audio_present"] = true;
    set_timing(object_in(video, "timing"), timing);
    video["active_resolution"] = resolution_text(timing.h_active_pixels, timing.v_active_pixels);
    video["total_resolution"] = resolution_text(timing.h_total_pixels, timing.v_total_pixels);
    video["refresh_rate_hz"] = frame_rate_hz(timing);
    write_json_to_file(inputs_document.path, root);
}
