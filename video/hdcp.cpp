/// HDCP: the version that the signal of an input uses, and the version that the input allows.
/// A change is told from a repetition by the document, not by the cache.
#include <mutex>

#include "core/shared_state.h"
#include "store/documents.h"
#include "store/input_entries.h"
#include "store/json_access.h"
#include "store/store.h"
#include "video/video.h"
#include "video/video_codes.h"

void apply_hdcp_status(const CmdDataHDCPStatus* report)
{
    const std::lock_guard<std::mutex> lock(document_mutex);
    const unsigned position = input_position(report->port);
    if (input_cache[position].connected == 0) {
        return;
    }

    Json::Value root = read_document(inputs_document.path);
    Json::Value& hdcp = object_in(input_video(root, position), "hdcp");
    const char* version = text_of_code(active_hdcp_texts, report->status, "None");
    if (set_text(hdcp, "active_hdcp_version", version)) {
        write_json_to_file(inputs_document.path, root);
    }
}

void apply_hdcp_version(int hdcp_port, int hdcp_cap)
{
    const std::lock_guard<std::mutex> lock(document_mutex);
    Json::Value root = read_document(inputs_document.path);
    Json::Value& video = input_video(root, input_position(hdcp_port));
    Json::Value& control = object_in(object_in(video, "hdcp"), "control");
    const char* version = text_of_code(allowed_hdcp_texts, hdcp_cap, "HDCP 2.2");
    if (set_text(control, "allowed_hdcp_version", version)) {
        write_json_to_file(inputs_document.path, root);
    }
}
