/// The audio of the video inputs and of the USB Audio Class port.
#include "tests/table_test.h"

using Audio = TableTest;

PLAYED_TEST(Audio, ShowsEveryCode)
PLAYED_TEST(Audio, WritesOnlyWhatDiffersFromTheDocument)
PLAYED_TEST(Audio, FollowsTheUacControl)
