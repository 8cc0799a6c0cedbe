// The comparison of calls.

#include "recording/RecordingTest.h"

namespace lumtest {
namespace {

TEST(SameEventsTest, EqualListsAreTheSame) {
  EXPECT_TRUE(SameEvents({}, {}));
  EXPECT_TRUE(SameEvents({"a", "b"}, {"a", "b"}));
}

TEST(SameEventsTest, TheFirstDifferenceIsShownWithItsNeighbours) {
  const auto result = SameEvents({"1", "2", "3", "4", "5", "x", "7", "8", "9", "10"},
                                 {"1", "2", "3", "4", "5", "6", "7", "8", "9", "ten"});
  EXPECT_FALSE(result);
  EXPECT_STREQ(result.message(),
               "from number 6 on, seen was\n"
               "    3\n    4\n    5\n  > x\n    7\n    8\n    9\n"
               "in place of\n"
               "    3\n    4\n    5\n  > 6\n    7\n    8\n    9\n");
}

TEST(SameEventsTest, WhatIsMissingAtTheEndIsShown) {
  const auto result = SameEvents({"a"}, {"a", "b"});
  EXPECT_FALSE(result);
  EXPECT_STREQ(result.message(),
               "from number 2 on, seen was\n"
               "    a\n  > (the end)\n"
               "in place of\n"
               "    a\n  > b\n    (the end)\n");
}

}  // namespace
}  // namespace lumtest
