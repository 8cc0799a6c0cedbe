// The limit that each test of a program has.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "support/CaptureFd.h"
#include "support/Process.h"

namespace lumtest {
namespace {

TEST(TimeLimit, NamesTheTestThatDoesNotEnd) {
  if (std::getenv("LUM_TEST_IS_LATE") != nullptr) {
    CaptureStderr capture;  // takes the name away no more than a logger's test does
    raise(SIGALRM);
  }
  ProcessOptions late;
  late.environment = {"LUM_TEST_IS_LATE=1"};
  const ProcessResult result =
      RunCommand({"/proc/self/exe", "--gtest_filter=TimeLimit.NamesTheTestThatDoesNotEnd"}, late);
  EXPECT_EQ(result.exitStatus, 1) << result.Describe();
  EXPECT_EQ(result.err, "TimeLimit.NamesTheTestThatDoesNotEnd has not ended within 90 s\n");
}

TEST(TimeLimit, IsSetAnewForEachTest) {
  const unsigned left = alarm(60);
  EXPECT_GT(left, 0U);
  EXPECT_LE(left, 90U);
}

}  // namespace
}  // namespace lumtest
