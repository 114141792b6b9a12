/// HDCP: the version that a signal uses, which comes and goes with it, and the version that an
/// input allows, which nothing takes back.
#include "tests/table_test.h"

using Hdcp = TableTest;

PLAYED_TEST(Hdcp, PublishesEachChangeAlone)
PLAYED_TEST(Hdcp, TheActiveVersionGoesWithTheSignalAndTheAllowedOneStays)
