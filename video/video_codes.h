/// The words for the codes of the video messages. A code without a row has the word that its
/// lookup names as fallback; rows with the same word are there for those who list the codes.
#pragma once

#include "core/code_text.h"

constexpr CodeText color_space_texts[] = {
    {0, "RGB"},
    {1, "YCbCr 4:2:2"},
    {2, "YCbCr 4:4:4"},
    {3, "YCbCr 4:2:0"},
};

constexpr CodeText color_depth_texts[] = {
    {0, "8 bpc"},
    {1, "10 bpc"},
    {2, "12 bpc"},
};

constexpr CodeText color_range_texts[] = {
    {0, "DEFAULT"},
    {1, "LIMITED"},
    {2, "FULL"},
};

/// The signal on the HDMI input; the USB-C input knows "DP" alone.
constexpr CodeText signal_type_texts[] = {
    {1, "HDMI"},
    {2, "DVI"},
};

constexpr CodeText scan_texts[] = {
    {0, "Progressive"},
    {1, "Interlaced"},
};

constexpr CodeText polarity_texts[] = {
    {0, "Negative"},
    {1, "Positive"},
};

constexpr CodeText active_hdcp_texts[] = {
    {0, "None"},
    {1, "HDCP 1.4"},
    {2, "HDCP 2.2"},
};

constexpr CodeText allowed_hdcp_texts[] = {
    {0, "Off"},
    {1, "HDCP 1.4"},
    {2, "HDCP 2.2"},
};
