// The log capture against the real logger.

#include "log/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/CaptureFd.h"
#include "support/Threads.h"

namespace lumtest {
namespace {

using ::testing::EndsWith;

void Log(int level, const char* message) {
  LumLogger::GetInstance().Log("some/file", 7, "Work", " ", "detail", level, "%s", message);
}

TEST(LogCapture, KeepsStandardErrorQuietAndGivesItBack) {
  CaptureStderr errors;
  {
    const LogCapture capture;
    Log(1, "caught");
  }
  EXPECT_EQ(errors.Text(), "");
  Log(1, "written");
  EXPECT_THAT(errors.Stop(), EndsWith("written\n"));
}

TEST(LogCapture, TakesRecordsFromManyThreads) {
  const LogCapture capture;
  OnThreads(8, [](int) {
    for (int n = 0; n < 100; ++n) {
      Log(3, "message");
    }
  });
  EXPECT_EQ(capture.Count(), 800u);
}

}  // namespace
}  // namespace lumtest
