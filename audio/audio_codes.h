/// The words for the codes of the audio messages. Every other coding is "Non-LPCM" too.
#pragma once

#include "core/code_text.h"

constexpr CodeText audio_format_texts[] = {
    {0, "LPCM"},
    {1, "Non-LPCM"},
};

constexpr CodeText sample_frequency_texts[] = {
    {0, "32 kHz"}, {1, "44.1 kHz"},  {2, "48 kHz"},  {3, "88.2 kHz"},
    {4, "96 kHz"}, {5, "176.4 kHz"}, {6, "192 kHz"}, {7, "768 kHz"},
};
