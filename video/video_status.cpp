/// Video status: whether a signal is present, and its colour format.
#include <mutex>

#include "core/shared_state.h"
#include "store/documents.h"
#include "store/input_entries.h"
#include "store/json_access.h"
#include "store/store.h"
#include "video/video.h"
#include "video/video_codes.h"
#include "video/video_inputs.h"

namespace {

bool set_stable_signal(const CmdDataVideoStatus& report, InputCache& cache, Json::Value& video,
                       Json::Value& color)
{
    bool changed = false;
    if (input_position(report.port) == usb_c_input && take(cache.signal_type, 1)) {
        video["signal_type"] = "DP";
        changed = true;
    }
    if (take(cache.color_space, report.colorspace)) {
        color["color_space"] = text_of_code(color_space_texts, report.colorspace, "N/A");
        changed = true;
    }
    if (take(cache.color_depth, report.deepcolor)) {
        color["color_depth"] = text_of_code(color_depth_texts, report.deepcolor, "N/A");
        changed = true;
    }
    if (take(cache.color_range, report.color_range)) {
        color["color_range"] = text_of_code(color_range_texts, report.color_range, "N/A");
        changed = true;
    }
    return changed;
}

bool set_lost_signal(InputCache& cache, Json::Value& entry)
{
    if (!blank_input_cache(cache)) {
        return false;
    }
    reset_input_entry(entry);
    return true;
}

}  // namespace

void apply_video_status(const CmdDataVideoStatus* report)
{
    const std::lock_guard<std::mutex> lock(document_mutex);
    const unsigned position = input_position(report->port);
    InputCache& cache = input_cache[position];
    if (cache.connected == 0) {
        return;
    }

    Json::Value root = read_document(inputs_document.path);
    Json::Value& entry = input_entry(root, position, "video");
    Json::Value& video = object_in(entry, "video");
    Json::Value& color = object_in(video, "color");

    bool changed = false;
    if (take(cache.isStable, report->isStable)) {
        video["signal_present"] = report->isStable != 0;
        changed = true;
    }
    changed |= report->isStable != 0 ? set_stable_signal(*report, cache, video, color)
                                     : set_lost_signal(cache, entry);
    if (changed) {
        write_json_to_file(inputs_document.path, root);
    }
}
