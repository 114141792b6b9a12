/// HDMI and DVI: the signal type of the HDMI input, and what takes it back.
#include "tests/table_test.h"

using HdmiVideoMode = TableTest;

PLAYED_TEST(HdmiVideoMode, PublishesEachChangeOfTheModeOnPort0Alone)
PLAYED_TEST(HdmiVideoMode, IsTakenBackByALostSignalAndByTheLink)
