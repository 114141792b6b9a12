/// The audio of a video input. A change is told from a repetition by the document.
#include <mutex>

#include "audio/audio.h"
#include "audio/audio_codes.h"
#include "core/shared_state.h"
#include "store/documents.h"
#include "store/input_entries.h"
#include "store/json_access.h"
#include "store/store.h"

namespace {

struct InputAudio {
    bool is_present;
    const char* format;
    const char* sample_frequency;
    int channel;
};

InputAudio reported_audio(const CmdDataAudioStatus& report)
{
    if (report.isStable == 0) {
        return {false, "N/A", "N/A", 0};
    }
    return {true, text_of_code(audio_format_texts, report.audioCoding, "Non-LPCM"),
            text_of_code(sample_frequency_texts, report.sampleFreq, "N/A"), report.channels};
}

bool shows(Json::Value& object, const InputAudio& audio)
{
    return flag_in(object, "connected").asBool() == audio.is_present &&
           flag_in(object, "signal_present").asBool() == audio.is_present &&
           has_text(text_in(object, "format"), audio.format) &&
           has_text(text_in(object, "sample_frequency"), audio.sample_frequency) &&
           number_in(object, "channel").asInt() == audio.channel;
}

void set_audio(Json::Value& object, const InputAudio& audio)
{
    object["connected"] = audio.is_present;
    object["signal_present"] = audio.is_present;
    object["format"] = audio.format;
    object["sample_frequency"] = audio.sample_frequency;
    object["channel"] = audio.channel;
}

}  // namespace

void apply_audio_status(const CmdDataAudioStatus* report)
{
    const std::lock_guard<std::mutex> lock(document_mutex);
    const unsigned position = input_position(report->port);
    if (input_cache[position].connected == 0) {
        return;
    }

    Json::Value root = read_document(inputs_document.path);
    Json::Value& object = object_in(input_entry(root, position, "audio"), "audio");
    const InputAudio audio = reported_audio(*report);
    if (!shows(object, audio)) {
        set_audio(object, audio);
        write_json_to_file(inputs_document.path, root);
    }
}
