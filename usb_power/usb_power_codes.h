/// The words for the codes of the USB-C and power messages.
#pragma once

#include "core/code_text.h"

/// DisplayPort alternate mode pin assignments: one bit each, and never two.
constexpr CodeText pin_assignment_texts[] = {
    {4, "C"},
    {8, "D"},
    {16, "E"},
};

constexpr CodeText charging_state_texts[] = {
    {0, "Inactive"},
    {1, "Charging"},
};

constexpr CodeText power_source_texts[] = {
    {0, "PoE"},
    {1, "Adapter"},
};
