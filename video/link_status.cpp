/// Link status: whether a video input is connected.
#include <mutex>

#include "core/shared_state.h"
#include "store/documents.h"
#include "store/input_entries.h"
#include "store/json_access.h"
#include "store/store.h"
#include "usb_power/usb_power.h"
#include "video/video.h"
#include "video/video_inputs.h"

namespace {

void set_link_up(unsigned position, InputCache& cache, Json::Value& video)
{
    const bool is_usb_c = position == usb_c_input;
    cache.signal_type = is_usb_c ? 1 : 0;
    video["signal_type"] = is_usb_c ? "DP" : "N/A";
}

void set_link_down(unsigned position, InputCache& cache, Json::Value& entry, Json::Value& video)
{
    fill_input_cache(cache);
    cache.connected = 0;
    video["signal_present"] = false;
    reset_input_entry(entry);
    if (position == usb_c_input) {
        reset_usb_c_entry();
    }
}

}  // namespace

void apply_link_status(const CmdDataLinkStatus* report)
{
    const std::lock_guard<std::mutex> lock(document_mutex);
    const unsigned position = input_position(report->port);
    InputCache& cache = input_cache[position];
    const bool is_up = report->isConnect == 1;
    if (!take(cache.connected, is_up ? 1 : 0)) {
        return;
    }

    Json::Value root = read_document(inputs_document.path);
    Json::Value& entry = input_entry(root, position, "video");
    Json::Value& video = object_in(entry, "video");
    video["connected"] = is_up;
    if (is_up) {
        set_link_up(position, cache, video);
    } else {
        set_link_down(position, cache, entry, video);
    }
    write_json_to_file(inputs_document.path, root);
}
