/// The reader of the video driver's timing file: text in lines that come in any order, of which
/// four forms carry numbers and others may carry words.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>

#include "core/paths.h"
#include "video/timing.h"

namespace {

struct ActiveSize {
    unsigned width;   // pixels
    unsigned height;  // lines
};

struct RateAndTotals {
    unsigned pixel_rate_khz;
    unsigned h_total;  // pixels
    unsigned v_total;  // lines
};

struct Blanking {
    unsigned h_back_porch;  // pixels
    unsigned v_back_porch;  // lines
    unsigned h_sync_width;  // pixels
    unsigned v_sync_width;  // lines
};

/// What the file has said so far; where it repeats itself, the later line holds.
struct VideoipTiming {
    std::optional<ActiveSize> active;
    std::optional<RateAndTotals> rate;
    std::optional<Blanking> blanking;
    std::optional<unsigned> refresh_rate_hz;
    std::optional<std::uint8_t> scan_mode;
    std::optional<std::uint16_t> h_sync_polarity;
    std::optional<std::uint16_t> v_sync_polarity;
};

bool read_active_size(const char* line, VideoipTiming& timing)
{
    ActiveSize size = {};
    if (std::sscanf(line, "Src Timing Table[0x%*x]: Serial Number[0x%*x] [%u]X[%u] [%*u]Hz",
                    &size.width, &size.height) != 2) {
        return false;
    }
    timing.active = size;
    return true;
}

bool read_rate(const char* line, VideoipTiming& timing)
{
    RateAndTotals rate = {};
    if (std::sscanf(line, "\tPixel Rate: %uKHz, Htotal: %u, Vtotal: %u", &rate.pixel_rate_khz,
                    &rate.h_total, &rate.v_total) != 3) {
        return false;
    }
    timing.rate = rate;
    return true;
}

bool read_blanking(const char* line, VideoipTiming& timing)
{
    Blanking blanking = {};
    if (std::sscanf(line, "\tHbp: %u, Vbp: %u, Hsw: %u, Vsw: %u", &blanking.h_back_porch,
                    &blanking.v_back_porch, &blanking.h_sync_width, &blanking.v_sync_width) != 4) {
        return false;
    }
    timing.blanking = blanking;
    return true;
}

bool holds(const char* line, const char* word)
{
    return std::strstr(line, word) != nullptr;
}

/// Of the two words for one thing, `word_of_1` and `word_of_0`, the first named here wins where
/// a line holds both.
template <typename Number>
void read_polarity(const char* line, const char* word_of_1, const char* word_of_0,
                   std::optional<Number>& polarity)
{
    if (holds(line, word_of_1)) {
        polarity = Number{1};
    } else if (holds(line, word_of_0)) {
        polarity = Number{0};
    }
}

void read_words(const char* line, VideoipTiming& timing)
{
    if (holds(line, "Progressive")) {
        timing.scan_mode = std::uint8_t{0};
    } else if (holds(line, "Interlace")) {
        timing.scan_mode = std::uint8_t{1};
    }
    read_polarity(line, "HPos", "HNeg", timing.h_sync_polarity);
    read_polarity(line, "VPos", "VNeg", timing.v_sync_polarity);
}

void read_refresh_rate(const char* line, VideoipTiming& timing)
{
    unsigned rate = 0;
    if (std::sscanf(line, "Src Refresh Rate: [%u]Hz", &rate) == 1) {
        timing.refresh_rate_hz = rate;
    }
}

void read_line(const char* line, VideoipTiming& timing)
{
    if (read_active_size(line, timing) || read_rate(line, timing) || read_blanking(line, timing)) {
        return;
    }
    read_words(line, timing);
    read_refresh_rate(line, timing);
}

constexpr std::uint16_t low_16_bits(std::uint64_t number)
{
    return static_cast<std::uint16_t>(number);
}

/// What the total leaves behind the active part, the sync pulse and the back porch. The sum of
/// three numbers as the file may hold them needs more than 32 bits.
std::uint16_t front_porch(unsigned total, unsigned active, unsigned sync_width, unsigned back_porch)
{
    const std::uint64_t used = std::uint64_t{active} + sync_width + back_porch;
    return used < total ? low_16_bits(total - used) : std::uint16_t{0};
}

void fill(VideoTimingFields& fields, const VideoipTiming& timing)
{
    const ActiveSize& active = *timing.active;
    const RateAndTotals& rate = *timing.rate;
    const Blanking& blanking = *timing.blanking;
    fields.scan_mode = timing.scan_mode.value_or(std::uint8_t{fields.scan_mode});
    fields.pixel_clock = rate.pixel_rate_khz * 1000U;
    fields.h_total_pixels = low_16_bits(rate.h_total);
    fields.h_active_pixels = low_16_bits(active.width);
    fields.h_sync_pulse_width = low_16_bits(blanking.h_sync_width);
    fields.h_sync_back_porch = low_16_bits(blanking.h_back_porch);
    fields.h_sync_front_porch =
        front_porch(rate.h_total, active.width, blanking.h_sync_width, blanking.h_back_porch);
    fields.h_sync_frequency_hz = rate.v_total * *timing.refresh_rate_hz;
    fields.h_sync_polarity = timing.h_sync_polarity.value_or(std::uint16_t{fields.h_sync_polarity});
    fields.v_total_pixels = low_16_bits(rate.v_total);
    fields.v_active_pixels = low_16_bits(active.height);
    fields.v_sync_pulse_width = low_16_bits(blanking.v_sync_width);
    fields.v_sync_back_porch = low_16_bits(blanking.v_back_porch);
    fields.v_sync_front_porch =
        front_porch(rate.v_total, active.height, blanking.v_sync_width, blanking.v_back_porch);
    fields.v_sync_frequency_hz = low_16_bits(*timing.refresh_rate_hz);
    fields.v_sync_polarity = timing.v_sync_polarity.value_or(std::uint16_t{fields.v_sync_polarity});
}

}  // namespace

int fill_timing_from_videoip(VideoTimingFields& timing)
{
    std::FILE* file = std::fopen(videoip_timing_path, "r");
    if (file == nullptr) {
        return -1;
    }
    VideoipTiming read;
    char line[256];
    while (std::fgets(line, sizeof line, file) != nullptr) {
        read_line(line, read);
    }
    static_cast<void>(std::fclose(file));

    if (!read.active || !read.rate || !read.blanking || !read.refresh_rate_hz) {
        return -1;
    }
    fill(timing, read);
    return 0;
}
