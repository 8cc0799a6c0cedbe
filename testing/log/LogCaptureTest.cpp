// The log capture against the real logger.

#include "log/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/CaptureFd.h"
#include "support/Threads.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;

void Log(int level, const char* message) {
  LumLogger::GetInstance().Log("some/file", 7, "Work", " ", "detail", level, "%s", message);
}

TEST(LogCapture, KeepsWhatIsLoggedUntilItIsCleared) {
  LogCapture capture;
  EXPECT_EQ(capture.Last().message, "");
  Log(3, "begin");
  Log(1, "failed");
  EXPECT_THAT(capture.Messages(), ElementsAre("begin", "failed"));
  EXPECT_THAT(capture.Messages(3), ElementsAre("begin"));
  EXPECT_EQ(capture.Count(2), 0u);
  const LogRecord record = capture.Last();
  EXPECT_EQ(record.file, "some/file");
  EXPECT_EQ(record.line, 7);
  EXPECT_EQ(record.function, "Work");
  EXPECT_EQ(record.tag, " ");
  EXPECT_EQ(record.detail, "detail");
  EXPECT_EQ(record.level, 1);
  EXPECT_EQ(record.message, "failed");
  EXPECT_EQ(capture.Text(), "some/file:7 Work 3 begin\nsome/file:7 Work 1 failed\n");
  capture.Clear();
  EXPECT_EQ(capture.Count(), 0u);
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
