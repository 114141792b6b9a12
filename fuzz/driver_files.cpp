/// The two files that drivers write. The first byte chooses one, the rest is its text.
#include <cstring>

#include "core/paths.h"
#include "ethernet/ethernet.h"
#include "ethernet/ethernet_entries.h"
#include "fuzz/device.h"
#include "store/documents.h"
#include "video/timing.h"
#include "video/video.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void read_timing(std::string_view text)
{
    write_text(videoip_timing_path, text);
    VideoTimingFields timing;
    std::memset(&timing, 0xA5, sizeof timing);
    const VideoTimingFields before = timing;
    const int result = fill_timing_from_videoip(timing);
    const bool is_unchanged = std::memcmp(&timing, &before, sizeof timing) == 0;
    require(result == 0 ? timing.port == before.port : result == -1 && is_unchanged,
            "a timing is read whole or not at all");

    restore_device();
    refresh_current_play_timing(2);  // no input
    require(read_text(inputs_document.path) == inputs_default_text, "no other input is published");
    refresh_current_play_timing(1);
    const Json::Value published = sound_document(inputs_document)["inputs"][1]["video"]["timing"];
    const unsigned clock = result == 0 && is_timing_valid(timing) ? timing.pixel_clock : 0;
    require(published["pixel_clock_hz"].asUInt() == clock, "a valid timing is published");
}

void read_ethernet_ports(std::string_view text)
{
    write_text(ethernet_port_status_path, text);
    restore_device();
    update_ethernet_status();
    for (const Json::Value& port : sound_document(ethernet_document)["ethernet"]) {
        const Json::Value& link = port["link"];
        require(link["status"].asBool() || link == down_link(), "no link shows no speed");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size != 0) {
        const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
        data[0] % 2 == 0 ? read_timing(text) : read_ethernet_ports(text);
    }
    return 0;
}
