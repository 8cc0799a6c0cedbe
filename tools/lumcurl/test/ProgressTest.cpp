#include "Progress.h"

#include <gtest/gtest.h>

namespace {

constexpr std::uint64_t kMiB = 1024 * 1024;

TEST(ProgressLine, ShowsTotalShareSpeedAndTimeLeft) {
  EXPECT_EQ(ProgressLine({false, kMiB, 4 * kMiB}, 2),
            "1.0 MiB of 4.0 MiB, 25 %, 512.0 KiB/s, 6 s left");
  EXPECT_EQ(ProgressLine({false, 999, 1000}, 1), "999 B of 1000 B, 99 %, 999 B/s, 1 s left");
}

TEST(ProgressLine, ShowsNoTimeLeftWhereNoneIsKnown) {
  EXPECT_EQ(ProgressLine({false, 0, kMiB}, 0), "0 B of 1.0 MiB, 0 %");
  EXPECT_EQ(ProgressLine({false, 0, kMiB}, 1), "0 B of 1.0 MiB, 0 %, 0 B/s");
  EXPECT_EQ(ProgressLine({false, kMiB, kMiB}, 1), "1.0 MiB of 1.0 MiB, 100 %, 1.0 MiB/s");
  EXPECT_EQ(ProgressLine({false, kMiB, 0}, 1), "1.0 MiB, 1.0 MiB/s");
}

TEST(ProgressLine, TellsPackingApart) {
  EXPECT_EQ(ProgressLine({true, 0, 0}, 0), "packing");
  EXPECT_EQ(ProgressLine({true, 2 * kMiB, 0}, 0), "packing, 2.0 MiB");
}

}  // namespace
