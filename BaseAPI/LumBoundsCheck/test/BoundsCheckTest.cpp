// memset_s, memcpy_s and sprintf_s: what they write, what they refuse, and what a refusal leaves
// behind.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string>
#include <type_traits>
#include <vector>

#include "LumBoundsCheck.h"

extern "C" int CallAllFromC(char* buffer, rsize_t capacity);

namespace {

static_assert(std::is_same<rsize_t, std::size_t>::value, "C11 K.3.3");
static_assert(std::is_same<errno_t, int>::value, "C11 K.3.2");

constexpr rsize_t kTooLarge = SIZE_MAX / 2 + 1;

std::string Zeros(std::size_t count) {
  return std::string(count, '\0');
}

TEST(HeaderTest, ServesCallersInC) {
  char buffer[8];
  EXPECT_EQ(7, CallAllFromC(buffer, sizeof(buffer)));
  EXPECT_STREQ("12345-6", buffer);
}

// ---- memset_s ----

TEST(MemsetTest, SetsExactlyTheCount) {
  std::string buffer(8, 'x');
  EXPECT_EQ(0, memset_s(&buffer[0], 8, 'a', 5));
  EXPECT_EQ("aaaaaxxx", buffer);
}

TEST(MemsetTest, SetsTheWholeCapacity) {
  std::string buffer(9, 'x');
  EXPECT_EQ(0, memset_s(&buffer[0], 8, 0, 8));
  EXPECT_EQ(std::string(8, '\0') + "x", buffer);
}

TEST(MemsetTest, ConvertsTheValueToAByte) {
  unsigned char buffer[2] = {0, 0};
  EXPECT_EQ(0, memset_s(buffer, 2, 0x1AB, 1));
  EXPECT_EQ(0xAB, buffer[0]);
  EXPECT_EQ(0, memset_s(buffer, 2, -1, 1));
  EXPECT_EQ(0xFF, buffer[0]);
  EXPECT_EQ(0, buffer[1]);
}

TEST(MemsetTest, AZeroCountChangesNothing) {
  std::string buffer(4, 'x');
  EXPECT_EQ(0, memset_s(&buffer[0], 4, 'a', 0));
  EXPECT_EQ(0, memset_s(&buffer[0], 0, 'a', 0));
  EXPECT_EQ("xxxx", buffer);
}

TEST(MemsetTest, RefusesANullDestination) {
  EXPECT_EQ(EINVAL, memset_s(nullptr, 8, 'a', 4));
  EXPECT_EQ(EINVAL, memset_s(nullptr, 0, 'a', 0));
  EXPECT_EQ(EINVAL, memset_s(nullptr, kTooLarge, 'a', kTooLarge));
}

TEST(MemsetTest, ACountOneAboveTheCapacityFillsTheCapacityOnly) {
  std::string buffer(8, 'x');
  EXPECT_EQ(ERANGE, memset_s(&buffer[0], 5, 'a', 6));
  EXPECT_EQ("aaaaaxxx", buffer);
}

TEST(MemsetTest, ACountAboveACapacityOfZeroTouchesNothing) {
  std::string buffer(4, 'x');
  EXPECT_EQ(ERANGE, memset_s(&buffer[0], 0, 'a', 1));
  EXPECT_EQ("xxxx", buffer);
}

TEST(MemsetTest, ATooLargeCapacityTouchesNothing) {
  std::string buffer(4, 'x');
  EXPECT_EQ(ERANGE, memset_s(&buffer[0], kTooLarge, 'a', 1));
  EXPECT_EQ(ERANGE, memset_s(&buffer[0], kTooLarge, 'a', 0));
  EXPECT_EQ(ERANGE, memset_s(&buffer[0], static_cast<rsize_t>(-1), 'a', static_cast<rsize_t>(-1)));
  EXPECT_EQ("xxxx", buffer);
}

TEST(MemsetTest, TheLargestCapacityIsUsable) {
  std::string buffer(4, 'x');
  EXPECT_EQ(0, memset_s(&buffer[0], SIZE_MAX / 2, 'a', 2));
  EXPECT_EQ("aaxx", buffer);
}

TEST(MemsetTest, ATooLargeCountFillsTheCapacity) {
  std::string buffer(4, 'x');
  EXPECT_EQ(ERANGE, memset_s(&buffer[0], 3, 'a', kTooLarge));
  EXPECT_EQ("aaax", buffer);
}

TEST(MemsetTest, SetsMegabytes) {
  constexpr rsize_t kSize = rsize_t{8} << 20;
  std::vector<unsigned char> buffer(kSize + 1, 1);
  EXPECT_EQ(0, memset_s(buffer.data(), kSize, 0, kSize));
  EXPECT_EQ(std::vector<unsigned char>(kSize),
            std::vector<unsigned char>(buffer.begin(), buffer.end() - 1));
  EXPECT_EQ(1, buffer.back());
}

// ---- memcpy_s ----

TEST(MemcpyTest, CopiesExactlyTheCount) {
  std::string buffer(8, 'x');
  EXPECT_EQ(0, memcpy_s(&buffer[0], 8, "abcdef", 5));
  EXPECT_EQ("abcdexxx", buffer);
}

TEST(MemcpyTest, FillsTheCapacityToItsLastByte) {
  std::string buffer(6, 'x');
  EXPECT_EQ(0, memcpy_s(&buffer[0], 5, "abcdef", 5));
  EXPECT_EQ("abcdex", buffer);
}

TEST(MemcpyTest, CopiesZeroBytesLikeAnyOther) {
  const std::string source("a\0b\0", 4);
  std::string buffer(5, 'x');
  EXPECT_EQ(0, memcpy_s(&buffer[0], 5, source.data(), 4));
  EXPECT_EQ(source + "x", buffer);
}

TEST(MemcpyTest, AZeroCountChangesNothing) {
  std::string buffer(4, 'x');
  EXPECT_EQ(0, memcpy_s(&buffer[0], 4, "abcd", 0));
  EXPECT_EQ(0, memcpy_s(&buffer[0], 0, "abcd", 0));
  EXPECT_EQ(0, memcpy_s(&buffer[0], 4, &buffer[0], 0));
  EXPECT_EQ("xxxx", buffer);
}

TEST(MemcpyTest, RefusesANullDestination) {
  EXPECT_EQ(EINVAL, memcpy_s(nullptr, 4, "abcd", 4));
  EXPECT_EQ(EINVAL, memcpy_s(nullptr, 0, "abcd", 0));
  EXPECT_EQ(EINVAL, memcpy_s(nullptr, kTooLarge, nullptr, kTooLarge));
}

TEST(MemcpyTest, ANullSourceLeavesZeros) {
  std::string buffer(5, 'x');
  EXPECT_EQ(EINVAL, memcpy_s(&buffer[0], 4, nullptr, 2));
  EXPECT_EQ(Zeros(4) + "x", buffer);
  buffer.assign(5, 'x');
  EXPECT_EQ(EINVAL, memcpy_s(&buffer[0], 4, nullptr, 0));
  EXPECT_EQ(Zeros(4) + "x", buffer);
}

TEST(MemcpyTest, ACountOneAboveTheCapacityLeavesZeros) {
  std::string buffer(6, 'x');
  EXPECT_EQ(ERANGE, memcpy_s(&buffer[0], 4, "abcdef", 5));
  EXPECT_EQ(Zeros(4) + "xx", buffer);
}

TEST(MemcpyTest, ACountAboveACapacityOfZeroTouchesNothing) {
  std::string buffer(4, 'x');
  EXPECT_EQ(ERANGE, memcpy_s(&buffer[0], 0, "abcd", 1));
  EXPECT_EQ("xxxx", buffer);
}

TEST(MemcpyTest, ATooLargeCapacityTouchesNothing) {
  std::string buffer(4, 'x');
  EXPECT_EQ(ERANGE, memcpy_s(&buffer[0], kTooLarge, "abcd", 4));
  EXPECT_EQ(ERANGE, memcpy_s(&buffer[0], kTooLarge, "abcd", kTooLarge));
  EXPECT_EQ(EINVAL, memcpy_s(&buffer[0], kTooLarge, nullptr, 4));
  EXPECT_EQ("xxxx", buffer);
}

TEST(MemcpyTest, ANegativeLengthThatWasConvertedTouchesNothing) {
  std::string buffer(4, 'x');
  const auto length = static_cast<rsize_t>(-1);
  EXPECT_EQ(ERANGE, memcpy_s(&buffer[0], length, "abcd", length));
  EXPECT_EQ("xxxx", buffer);
}

TEST(MemcpyTest, TheLargestCapacityIsUsable) {
  std::string buffer(4, 'x');
  EXPECT_EQ(0, memcpy_s(&buffer[0], SIZE_MAX / 2, "ab", 2));
  EXPECT_EQ("abxx", buffer);
}

TEST(MemcpyTest, ATooLargeCountLeavesZeros) {
  std::string buffer(4, 'x');
  EXPECT_EQ(ERANGE, memcpy_s(&buffer[0], 3, "abcd", kTooLarge));
  EXPECT_EQ(Zeros(3) + "x", buffer);
}

TEST(MemcpyTest, ASourceThatReachesOneByteIntoTheDestinationIsRefused) {
  std::string buffer("abcdefgh");
  EXPECT_EQ(EINVAL, memcpy_s(&buffer[3], 5, &buffer[0], 4));
  EXPECT_EQ("abc" + Zeros(5), buffer);
}

TEST(MemcpyTest, ADestinationThatReachesOneByteIntoTheSourceIsRefused) {
  std::string buffer("abcdefgh");
  EXPECT_EQ(EINVAL, memcpy_s(&buffer[0], 4, &buffer[3], 4));
  EXPECT_EQ(Zeros(4) + "efgh", buffer);
}

TEST(MemcpyTest, CopyingOntoItselfIsRefused) {
  std::string buffer("abcd");
  EXPECT_EQ(EINVAL, memcpy_s(&buffer[0], 2, &buffer[0], 1));
  EXPECT_EQ(Zeros(2) + "cd", buffer);
}

TEST(MemcpyTest, NeighboursDoNotOverlap) {
  std::string buffer("abcdefgh");
  EXPECT_EQ(0, memcpy_s(&buffer[4], 4, &buffer[0], 4));
  EXPECT_EQ("abcdabcd", buffer);
  buffer = "abcdefgh";
  EXPECT_EQ(0, memcpy_s(&buffer[0], 4, &buffer[4], 4));
  EXPECT_EQ("efghefgh", buffer);
}

TEST(MemcpyTest, OnlyTheBytesCopiedCountAsOverlap) {
  std::string buffer("abcdefgh");
  EXPECT_EQ(0, memcpy_s(&buffer[0], 8, &buffer[4], 3));
  EXPECT_EQ("efgdefgh", buffer);
}

// ---- sprintf_s ----

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
