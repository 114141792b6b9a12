/// The empty values of a video input: of its entry in the document, for a signal that is lost and
/// a link that goes down, and of its cache, for a signal that is lost.
#include <array>

#include "store/json_access.h"
#include "video/video_inputs.h"

namespace {

enum ResetObject { in_video, in_color, in_hdcp, in_timing, in_audio, reset_object_count };
enum class EmptyValue { not_available, none, zero, no };

struct ResetMember {
    ResetObject object;
    const char* member;
    EmptyValue value;
};

// What stays: `connected` and `signal_present` of `video`, which have rules of their own, and
// the HDCP version that the input allows, which is the user's choice and not the signal's.
constexpr ResetMember input_reset_list[] = {
    {in_video, "signal_type", EmptyValue::not_available},
    {in_video, "active_resolution", EmptyValue::not_available},
    {in_video, "total_resolution", EmptyValue::not_available},
    {in_video, "refresh_rate_hz", EmptyValue::zero},
    {in_video, "embedded_audio_present", EmptyValue::no},
    {in_color, "color_space", EmptyValue::not_available},
    {in_color, "color_depth", EmptyValue::not_available},
    {in_color, "color_range", EmptyValue::not_available},
    {in_hdcp, "active_hdcp_version", EmptyValue::none},
    {in_timing, "scan", EmptyValue::not_available},
    {in_timing, "pixel_clock_hz", EmptyValue::zero},
    {in_timing, "h_total_pixels", EmptyValue::zero},
    {in_timing, "h_active_pixels", EmptyValue::zero},
    {in_timing, "h_sync_pulse_width", EmptyValue::zero},
    {in_timing, "h_sync_back_porch", EmptyValue::zero},
    {in_timing, "h_sync_front_porch", EmptyValue::zero},
    {in_timing, "h_sync_frequency_hz", EmptyValue::zero},
    {in_timing, "h_sync_polarity", EmptyValue::not_available},
    {in_timing, "v_total_pixels", EmptyValue::zero},
    {in_timing, "v_active_pixels", EmptyValue::zero},
    {in_timing, "v_sync_pulse_width", EmptyValue::zero},
    {in_timing, "v_sync_back_porch", EmptyValue::zero},
    {in_timing, "v_sync_front_porch", EmptyValue::zero},
    {in_timing, "v_sync_frequency_hz", EmptyValue::zero},
    {in_timing, "v_sync_polarity", EmptyValue::not_available},
    {in_audio, "connected", EmptyValue::no},
    {in_audio, "signal_present", EmptyValue::no},
    {in_audio, "format", EmptyValue::not_available},
    {in_audio, "sample_frequency", EmptyValue::not_available},
    {in_audio, "channel", EmptyValue::zero},
};

Json::Value empty_value(EmptyValue value)
{
    switch (value) {
        case EmptyValue::not_available:
            return "N/A";
        case EmptyValue::none:
            return "None";
        case EmptyValue::zero:
            return 0;
        case EmptyValue::no:
            break;
    }
    return false;
}

/// What a cache holds when nothing is published. The fill byte stands where 0 is a code.
constexpr InputCache make_blank_cache()
{
    InputCache blank = {};
    blank.blank_mark_4 = input_cache_fill_byte;
    blank.blank_mark_6 = input_cache_fill_byte;
    blank.color_space = input_cache_fill_byte;
    blank.color_depth = input_cache_fill_byte;
    blank.color_range = input_cache_fill_byte;
    blank.blank_mark_7 = input_cache_fill_byte;
    blank.scan_mode = input_cache_fill_byte;
    blank.h_sync_polarity = input_cache_fill_byte;
    blank.v_sync_polarity = input_cache_fill_byte;
    return blank;
}
constexpr InputCache blank_cache = make_blank_cache();

}  // namespace

void reset_input_entry(Json::Value& entry)
{
    Json::Value& video = object_in(entry, "video");
    const std::array<Json::Value*, reset_object_count> objects = {
        &video, &object_in(video, "color"), &object_in(video, "hdcp"), &object_in(video, "timing"),
        &object_in(entry, "audio")};
    for (const ResetMember& row : input_reset_list) {
        (*objects[row.object])[row.member] = empty_value(row.value);
    }
}

// As a whole, so that no field can be left out.
bool blank_input_cache(InputCache& cache)
{
    InputCache blank = blank_cache;
    blank.connected = cache.connected;
    blank.isStable = cache.isStable;
    const bool changes = cache != blank;
    cache = blank;
    return changes;
}
