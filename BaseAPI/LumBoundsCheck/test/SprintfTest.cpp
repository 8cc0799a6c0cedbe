// sprintf_s: what it writes, what it refuses, and what a refusal leaves behind.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cwchar>
#include <string>
#include <vector>

#include "LumBoundsCheck.h"

namespace {

constexpr rsize_t kTooLarge = SIZE_MAX / 2 + 1;

// Calls through this pointer reach the function unchecked by the compiler.
using Formatter = int (*)(char*, rsize_t, const char*, ...);
const Formatter kUnchecked = sprintf_s;

// In the "C" locale, which every program starts with, the second character has no multibyte form.
const wchar_t kUnwritable[] = {L'a', static_cast<wchar_t>(0x4E2D), L'\0'};

TEST(SprintfTest, FormatsItsArguments) {
  char buffer[64];
  EXPECT_EQ(34, sprintf_s(buffer, sizeof(buffer), "https://%s:%d/%05.1f/%x%%/%c%s/%*d", "host",
                          8080, 2.5, 255U, 'q', "", 4, 7));
  EXPECT_STREQ("https://host:8080/002.5/ff%/q/   7", buffer);
}

TEST(SprintfTest, PercentSignsInArgumentsAreText) {
  char buffer[32];
  EXPECT_EQ(8, sprintf_s(buffer, sizeof(buffer), "<%s>", "%n%s%d"));
  EXPECT_STREQ("<%n%s%d>", buffer);
}

TEST(SprintfTest, AnEmptyTextNeedsOneByte) {
  char buffer[2] = {'x', 'y'};
  EXPECT_EQ(0, sprintf_s(buffer, 1, "%s", ""));
  EXPECT_EQ('\0', buffer[0]);
  EXPECT_EQ('y', buffer[1]);
}

TEST(SprintfTest, ATextWithAZeroCharacterCountsItsWholeLength) {
  char buffer[8] = "xxxxxxx";
  EXPECT_EQ(3, sprintf_s(buffer, 4, "a%cb", '\0'));
  EXPECT_EQ(std::string("a\0b\0xxx", 7), std::string(buffer, 7));
}

TEST(SprintfTest, TextThatFillsTheCapacityExactlyFits) {
  std::string buffer(7, 'x');
  EXPECT_EQ(5, sprintf_s(&buffer[0], 6, "%s", "abcde"));
  EXPECT_EQ(std::string("abcde\0x", 7), buffer);
}

TEST(SprintfTest, TextOneByteTooLongIsRefused) {
  std::string buffer(7, 'x');
  EXPECT_EQ(-ERANGE, sprintf_s(&buffer[0], 6, "%s", "abcdef"));
  EXPECT_EQ('\0', buffer[0]);
  EXPECT_EQ('x', buffer[6]);
}

TEST(SprintfTest, TextOneByteTooLongForOneByteIsRefused) {
  std::string buffer(2, 'x');
  EXPECT_EQ(-ERANGE, sprintf_s(&buffer[0], 1, "%d", 1));
  EXPECT_EQ(std::string("\0x", 2), buffer);
}

TEST(SprintfTest, Of4096BytesTheTerminatorTakesOne) {
  std::vector<char> buffer(4096, 'x');
  const std::string fits(4095, 'u');
  EXPECT_EQ(4095, sprintf_s(buffer.data(), buffer.size(), "%s", fits.c_str()));
  EXPECT_EQ(fits, std::string(buffer.data()));

  const std::string tooLong(4096, 'u');
  EXPECT_EQ(-ERANGE, sprintf_s(buffer.data(), buffer.size(), "%s", tooLong.c_str()));
  EXPECT_STREQ("", buffer.data());
}

TEST(SprintfTest, RefusesANullDestination) {
  EXPECT_EQ(-EINVAL, sprintf_s(nullptr, 8, "%d", 1));
  EXPECT_EQ(-EINVAL, sprintf_s(nullptr, 0, "%d", 1));
  EXPECT_EQ(-EINVAL, sprintf_s(nullptr, kTooLarge, "%d", 1));
}

TEST(SprintfTest, ANullFormatLeavesTheEmptyString) {
  std::string buffer(4, 'x');
  EXPECT_EQ(-EINVAL, kUnchecked(&buffer[0], 4, nullptr));
  EXPECT_EQ('\0', buffer[0]);
  buffer.assign(4, 'x');
  EXPECT_EQ(-EINVAL, kUnchecked(&buffer[0], 0, nullptr));
  EXPECT_EQ(-EINVAL, kUnchecked(&buffer[0], kTooLarge, nullptr));
  EXPECT_EQ("xxxx", buffer);
}

TEST(SprintfTest, ANullFormatLeavesTheEmptyStringInOneByte) {
  std::string buffer(2, 'x');
  EXPECT_EQ(-EINVAL, kUnchecked(&buffer[0], 1, nullptr));
  EXPECT_EQ(std::string("\0x", 2), buffer);
}

TEST(SprintfTest, ACapacityOfZeroTouchesNothing) {
  std::string buffer(2, 'x');
  EXPECT_EQ(-ERANGE, sprintf_s(&buffer[0], 0, "%s", ""));
  EXPECT_EQ(-ERANGE, sprintf_s(&buffer[0], 0, "%ls", kUnwritable));  // whatever the text
  EXPECT_EQ("xx", buffer);
}

TEST(SprintfTest, TheLargestCapacityIsUsable) {
  std::string buffer(4, 'x');
  EXPECT_EQ(2, kUnchecked(&buffer[0], SIZE_MAX / 2, "%s", "ab"));
  EXPECT_EQ(std::string("ab\0x", 4), buffer);
}

TEST(SprintfTest, ATooLargeCapacityTouchesNothing) {
  std::string buffer(2, 'x');
  EXPECT_EQ(-ERANGE, sprintf_s(&buffer[0], kTooLarge, "%s", ""));
  EXPECT_EQ(-ERANGE, sprintf_s(&buffer[0], static_cast<rsize_t>(-1), "%s", ""));
  EXPECT_EQ("xx", buffer);
}

TEST(SprintfTest, TextThatCannotBeConvertedLeavesTheEmptyString) {
  std::string buffer(16, 'x');
  EXPECT_EQ(-EINVAL, sprintf_s(&buffer[0], 16, "%ls", kUnwritable));
  EXPECT_EQ('\0', buffer[0]);
}

}  // namespace
