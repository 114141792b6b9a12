/// The state that the folders of the service share. All of it is static and lives as long as
/// the process. State that one file alone uses stands in that file.
#pragma once

#include <cstdint>
#include <cstring>
#include <mutex>
#include <type_traits>

/// Held across every read-modify-write of a document; guards `input_cache` as well. Taken
/// before the lock of the input update timer and that of the event sender, never after.
extern std::mutex document_mutex;

/// What was last published for a video input, to tell a change from a repetition.
struct __attribute__((packed)) InputCache {
    std::uint8_t connected;    // 1 link up, 0 link down
    std::uint8_t isStable;     // as last reported
    std::uint8_t signal_type;  // 0 none; USB-C: 1 for "DP"; HDMI: the mode as last reported
    // The blank marks are set by blanking alone: they tell a blanked cache from a filled one.
    std::uint8_t blank_mark_1;
    std::uint8_t blank_mark_2;
    std::uint8_t blank_mark_3;
    std::uint8_t blank_mark_4;
    std::uint8_t blank_mark_5;
    std::uint8_t blank_mark_6;
    std::uint8_t color_space;  // the codes as last reported
    std::uint8_t color_depth;
    std::uint8_t color_range;
    std::uint8_t blank_mark_7;
    std::uint8_t scan_mode;  // from here on the timing as last published
    std::uint32_t pixel_clock;
    std::uint16_t h_total_pixels;
    std::uint16_t h_active_pixels;
    std::uint16_t h_sync_pulse_width;
    std::uint16_t h_sync_back_porch;
    std::uint16_t h_sync_front_porch;
    std::uint32_t h_sync_frequency_hz;
    std::uint16_t v_total_pixels;
    std::uint16_t v_active_pixels;
    std::uint16_t v_sync_pulse_width;
    std::uint16_t v_sync_back_porch;
    std::uint16_t v_sync_front_porch;
    std::uint32_t v_sync_frequency_hz;
    std::uint8_t h_sync_polarity;
    std::uint8_t v_sync_polarity;
};
static_assert(std::has_unique_object_representations_v<InputCache>, "compared as bytes");

inline bool operator!=(const InputCache& left, const InputCache& right)
{
    return std::memcmp(&left, &right, sizeof left) != 0;
}

/// Fills a cache that knows nothing of its input: at start, and when the link goes down. It is
/// no legal code of any field, so the first report of each field counts as a change, and as it
/// is not 0, an input counts as connected and stable until something else is reported.
constexpr unsigned char input_cache_fill_byte = 0x9F;

// The video inputs by their positions in `input_cache` and in the array `inputs`.
constexpr unsigned hdmi_input = 0;
constexpr unsigned usb_c_input = 1;

/// The input that a report's port means. No port is rejected.
constexpr unsigned input_position(int port)
{
    return port == 1 ? usb_c_input : hdmi_input;
}

/// Under `document_mutex`.
extern InputCache input_cache[2];

/// Fills one cache, every byte of it. Under `document_mutex`, or before any thread is started.
void fill_input_cache(InputCache& cache);

// Plain numbers as last reported. Written by the dispatch of their messages and read by the
// handlers, all on the dispatch thread, so they need no lock.

extern std::int32_t usb_host_plug_status;  // of USB host input IN2: 1 plugged in
extern std::int32_t usb_eth_select;        // what LAN4 hangs on: 0 USB host IN2, 1 USB-C input
extern std::int32_t power_status;          // 0 PoE, 1 adapter
