// memset_s: what it sets, what it refuses, and what a refusal leaves behind.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "LumBoundsCheck.h"

namespace {

constexpr rsize_t kTooLarge = SIZE_MAX / 2 + 1;

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

}  // namespace
