/// The USB Audio Class port: an input of one document and an output of another. Nothing measures
/// its audio: when it runs, it is always the same.
#include <mutex>

#include "audio/audio.h"
#include "core/shared_state.h"
#include "store/documents.h"
#include "store/json_access.h"
#include "store/store.h"

namespace {

bool is_uac_entry(const Json::Value& entry)
{
    return entry.isObject() && entry.isMember("port_type") && has_text(entry["port_type"], "UAC");
}

Json::Value* find_uac_entry(Json::Value& entries)
{
    for (Json::Value& entry : entries) {
        if (is_uac_entry(entry)) {
            return &entry;
        }
    }
    return nullptr;
}

Json::Value& append_uac_entry(Json::Value& entries)
{
    Json::Value& entry = entries.append(Json::Value(Json::objectValue));
    entry["port_type"] = "UAC";
    entry["index"] = 1;
    return entry;
}

void set_uac_audio(Json::Value& audio, bool is_active)
{
    audio["connected"] = is_active;
    audio["signal_present"] = is_active;
    audio["format"] = is_active ? "PCM" : "N/A";
    audio["sample_frequency"] = is_active ? "48 kHz" : "N/A";
    audio["channel"] = is_active ? 2 : 0;
}

void publish_uac_input(bool is_enabled, bool is_active)
{
    Json::Value root = read_document(inputs_document.path);
    Json::Value& entries = array_in(root, "inputs");
    Json::Value* found = find_uac_entry(entries);
    Json::Value& entry = found != nullptr ? *found : append_uac_entry(entries);
    object_in(entry, "control")["enabled"] = is_enabled;
    set_uac_audio(object_in(entry, "audio"), is_active);
    write_json_to_file(inputs_document.path, root);
}

/// An entry that is there keeps its format, sample frequency and channel: they say what the
/// output has to offer. A new one starts with those of the input.
void publish_uac_output(bool is_active)
{
    Json::Value root = read_document(outputs_document.path);
    Json::Value& entries = array_in(root, "outputs");
    if (Json::Value* entry = find_uac_entry(entries)) {
        Json::Value& audio = object_in(*entry, "audio");
        audio["connected"] = is_active;
        audio["signal_present"] = is_active;
    } else {
        set_uac_audio(append_uac_entry(entries)["audio"], is_active);
    }
    write_json_to_file(outputs_document.path, root);
}

}  // namespace

void apply_uac_control(int /*uac_port*/, int enabled, int uac_plug_flag)
{
    const std::lock_guard<std::mutex> lock(document_mutex);
    const bool is_active = enabled != 0 && uac_plug_flag != 0;
    publish_uac_input(enabled == 1, is_active);
    publish_uac_output(is_active);
}
