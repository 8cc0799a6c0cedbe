// The sequence of faults on purpose.
#include "Faults.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

std::string Sequence(double rate, std::uint64_t seed, int length) {
  Faults faults(rate, seed);
  std::string sequence;
  for (int i = 0; i < length; ++i) {
    sequence += faults.NextFails() ? 'x' : '.';
  }
  return sequence;
}

TEST(Faults, DependOnRateAndSeedAlone) {
  EXPECT_EQ(Sequence(0.3, 7, 200), Sequence(0.3, 7, 200));
  EXPECT_NE(Sequence(0.3, 7, 200), Sequence(0.3, 8, 200));
  // Callers write these sequences into tests of their own.
  EXPECT_EQ(Sequence(0.5, 0, 16), "x.x..x.x..x..xxx");
}

TEST(Faults, NothingFailsAtZeroAndEverythingAtOne) {
  EXPECT_EQ(Sequence(0, 1, 1000), std::string(1000, '.'));
  EXPECT_EQ(Sequence(1, 1, 1000), std::string(1000, 'x'));
}

TEST(Faults, KeepTheRate) {
  const std::string sequence = Sequence(0.2, 42, 10000);
  EXPECT_NEAR(static_cast<double>(std::count(sequence.begin(), sequence.end(), 'x')), 2000, 200);
}

}  // namespace
