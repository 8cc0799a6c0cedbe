// The waits of examples/backoff.h.

#include "../backoff.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace {

using Wait = Backoff::Wait;

TEST(Backoff, EveryBoundIsTwiceTheOneBeforeAndIsReached) {
  // The longest of many waits after the same number of failures comes close to the bound.
  std::vector<Wait> longest(6, Wait(0));
  for (std::uint64_t seed = 0; seed < 2000; ++seed) {
    Backoff backoff(Wait(1000), Wait(16000), seed);
    for (Wait& one : longest) {
      one = std::max(one, backoff.Next());
    }
  }
  const std::vector<Wait> bounds{Wait(1000), Wait(2000),  Wait(4000),
                                 Wait(8000), Wait(16000), Wait(16000)};
  for (std::size_t i = 0; i < bounds.size(); ++i) {
    EXPECT_LE(longest[i], bounds[i]) << "failure " << i + 1;
    EXPECT_GT(longest[i], bounds[i] * 98 / 100) << "failure " << i + 1;
  }
}

TEST(Backoff, WaitsAreSpreadEvenlyFromNothingOn) {
  constexpr int kDevices = 10000;
  std::vector<int> devices(10);
  for (std::uint64_t seed = 0; seed < kDevices; ++seed) {
    ++devices[static_cast<std::size_t>(Backoff(Wait(999), Wait(999), seed).Next().count() / 100)];
  }
  for (const int count : devices) {  // 1000 are expected in each tenth; 4 deviations are 120
    EXPECT_NEAR(count, kDevices / 10, 120);
  }
}

TEST(Backoff, AfterASuccessTheFirstBoundHoldsAgain) {
  Backoff backoff(Wait(10), Wait(100000), 1);
  for (int i = 0; i < 20; ++i) {
    backoff.Next();
  }
  for (int i = 0; i < 100; ++i) {
    backoff.Reset();
    EXPECT_LE(backoff.Next(), Wait(10));
  }
}

TEST(Backoff, OneSeedIsOneSequence) {
  Backoff one(Wait(1000), Wait(60000), 7);
  Backoff same(Wait(1000), Wait(60000), 7);
  Backoff other(Wait(1000), Wait(60000), 8);
  bool differs = false;
  for (int i = 0; i < 20; ++i) {
    const Wait wait = one.Next();
    EXPECT_EQ(wait, same.Next());
    differs = differs || wait != other.Next();
  }
  EXPECT_TRUE(differs);
}

TEST(Backoff, BoundsThatAreTheLargestOfAllDoNotOverflow) {
  const Wait most(std::numeric_limits<Wait::rep>::max());
  Backoff backoff(Wait(1), most, 3);
  Wait longest(0);
  for (int i = 0; i < 200; ++i) {
    const Wait wait = backoff.Next();
    EXPECT_GE(wait, Wait(0));
    longest = std::max(longest, wait);
  }
  EXPECT_GT(longest, most / 2);
}

TEST(Backoff, AFirstBoundAboveTheLongestIsTheLongest) {
  Backoff backoff(Wait(1000), Wait(5), 3);
  for (int i = 0; i < 100; ++i) {
    EXPECT_LE(backoff.Next(), Wait(5));
  }
}

}  // namespace
