/// HDMI and DVI: the signal type of the HDMI input.
#include <mutex>

#include "core/shared_state.h"
#include "store/documents.h"
#include "store/input_entries.h"
#include "store/store.h"
#include "video/video.h"
#include "video/video_codes.h"
#include "video/video_inputs.h"

void apply_hdmi_video_mode(const CmdDataHdmiVideoMode* report)
{
    // Here alone the port is not a choice between the inputs: only 0 means the HDMI input.
    if (report->port != 0) {
        return;
    }
    const std::lock_guard<std::mutex> lock(document_mutex);
    InputCache& cache = input_cache[hdmi_input];
    if (cache.connected == 0 || !take(cache.signal_type, report->mode)) {
        return;
    }

    Json::Value root = read_document(inputs_document.path);
    input_video(root, hdmi_input)["signal_type"] =
        text_of_code(signal_type_texts, report->mode, "N/A");
    write_json_to_file(inputs_document.path, root);
}
