// The helpers over libcurl's easy interface that the clients share.

#include "CurlEasy.h"

#include <stdexcept>

#include "recording/RecordingTest.h"

namespace lumtest {
namespace {

using namespace lumhttp;

class CurlEasyTest : public RecordingTest {
 protected:
  HttpResult result;
  std::string bytes = "abcdefgh";
};

TEST_F(CurlEasyTest, WriteToStringAppendsSizeTimesCountBytes) {
  result.body = "0";
  EXPECT_EQ(WriteToString(&bytes[0], 2, 3, &result), 6u);
  EXPECT_EQ(WriteToString(&bytes[6], 1, 2, &result), 2u);
  EXPECT_EQ(result.body, "0abcdefgh");
  EXPECT_EQ(result.code, -1);
}

TEST_F(CurlEasyTest, WriteToStringTakesNothingWithoutDataOrAResult) {
  EXPECT_EQ(WriteToString(nullptr, 1, 8, &result), 0u);
  EXPECT_EQ(WriteToString(&bytes[0], 1, 8, nullptr), 0u);
  EXPECT_EQ(result.body, "");
}

TEST_F(CurlEasyTest, WriteToStringKeepsAnExceptionForLater) {
  result.body._M_length(result.body.max_size());  // there is no memory behind it
  EXPECT_EQ(WriteToString(&bytes[0], 1, 8, &result), 0u);
  result.body._M_length(0);
  ASSERT_TRUE(result.failure);
  EXPECT_THROW(std::rethrow_exception(result.failure), std::length_error);
}

TEST_F(CurlEasyTest, AppendLineThatFailsLeavesTheListAsItWas) {
  HeaderList list;
  AppendLine(list, "A: 1");
  recorder.FailAppend(1);
  EXPECT_THROW(AppendLine(list, "B: 2"), std::bad_alloc);
  ASSERT_NE(list, nullptr);
  EXPECT_STREQ(list->data, "A: 1");
  EXPECT_EQ(list->next, nullptr);
  AppendLine(list, "C: 3");
  EXPECT_STREQ(list->next->data, "C: 3");
}

TEST_F(CurlEasyTest, KeepEmptyValuesMakesSemicolonsOfEmptyValuesWithANameAndOfNothingElse) {
  const std::pair<const char*, const char*> lines[] = {
      {"A: ", "A;"}, {"A:\t ", "A;"}, {"A:", "A:"},   {"A: 1", "A: 1"}, {"A: b: ", "A: b: "},
      {": ", ": "},  {":", ":"},      {": b", ": b"}, {"A", "A"},       {"", ""}};
  for (const auto& [given, kept] : lines) {
    HeaderList list;
    AppendLine(list, given);
    KeepEmptyValues(list);
    EXPECT_STREQ(list->data, kept);
  }
}

}  // namespace
}  // namespace lumtest
