// memcpy_s: what it copies, what it refuses, and what a refusal leaves behind.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "LumBoundsCheck.h"

namespace {

constexpr rsize_t kTooLarge = SIZE_MAX / 2 + 1;

std::string Zeros(std::size_t count) {
  return std::string(count, '\0');
}

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

}  // namespace
