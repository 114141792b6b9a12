/// The words for the codes in the Ethernet driver's file.
#pragma once

#include "core/code_text.h"

constexpr CodeText speed_texts[] = {
    {0, "10Mbps"},
    {1, "100Mbps"},
    {2, "1000Mbps"},
};

constexpr CodeText duplex_texts[] = {
    {0, "HALF"},
    {1, "FULL"},
};
