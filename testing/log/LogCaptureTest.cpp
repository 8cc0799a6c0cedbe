// The log capture against the real logger.

#include "log/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Threads.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

void Log(int level, const char* message) {
  LumLogger::GetInstance().Log("some/file", 7, "Work", " ", "", level, "%s", message);
}

TEST(LogCapture, KeepsEveryField) {
  const LogCapture capture;
  LumLogger::GetInstance().Log("some/file", 7, "Work", " ", "detail", 2, "n=%d %s", 5, "text");
  ASSERT_EQ(capture.Count(), 1u);
  const LogRecord record = capture.Records()[0];
  EXPECT_EQ(record.file, "some/file");
  EXPECT_EQ(record.line, 7);
  EXPECT_EQ(record.function, "Work");
  EXPECT_EQ(record.tag, " ");
  EXPECT_EQ(record.detail, "detail");
  EXPECT_EQ(record.level, 2);
  EXPECT_EQ(record.message, "n=5 text");
  EXPECT_EQ(capture.Text(), "some/file:7 Work [ ] [detail] 2 n=5 text\n");
}

TEST(LogCapture, AnswersQuestions) {
  LogCapture capture;
  EXPECT_EQ(capture.Last().message, "");
  Log(3, "begin");
  Log(1, "failed: no route");
  Log(3, "end");
  EXPECT_THAT(capture.Messages(), ElementsAre("begin", "failed: no route", "end"));
  EXPECT_THAT(capture.Messages(3), ElementsAre("begin", "end"));
  EXPECT_THAT(capture.Messages(2), IsEmpty());
  EXPECT_EQ(capture.Count(1), 1u);
  EXPECT_EQ(capture.Records(1)[0].message, "failed: no route");
  EXPECT_TRUE(capture.Has(3, "begin"));
  EXPECT_FALSE(capture.Has(1, "begin"));
  EXPECT_FALSE(capture.Has(1, "no route"));
  EXPECT_TRUE(capture.HasPart(1, "no route"));
  EXPECT_FALSE(capture.HasPart(3, "no route"));
  EXPECT_EQ(capture.Last().message, "end");
  capture.Clear();
  EXPECT_EQ(capture.Count(), 0u);
}

TEST(LogCapture, LeavesOutWhatIsBelowItsLevel) {
  {
    const LogCapture capture(LumLogger::kError);
    Log(2, "two");
    Log(1, "one");
    EXPECT_THAT(capture.Messages(), ElementsAre("one"));
  }
  const LogCapture capture;
  Log(3, "three");
  EXPECT_THAT(capture.Messages(), ElementsAre("three"));
}

TEST(LogCapture, KeepsStandardErrorQuietAndGivesItBack) {
  testing::internal::CaptureStderr();
  {
    const LogCapture capture;
    Log(1, "caught");
  }
  Log(1, "written");
  const std::string written = testing::internal::GetCapturedStderr();
  EXPECT_THAT(written, HasSubstr("written"));
  EXPECT_THAT(written, testing::Not(HasSubstr("caught")));
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
