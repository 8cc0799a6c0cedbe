// Counts of memory and descriptors.

#include "support/ProcessState.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace lumtest {
namespace {

TEST(ProcessState, SeesMemoryComeAndGo) {
  constexpr std::size_t kSize = 64 << 20;
  constexpr std::size_t kSlack = 16 << 20;
  ASSERT_TRUE(ResetPeakResident());
  const std::size_t before = ResidentBytes();
  void* const memory =
      mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  std::memset(memory, 1, kSize);
  EXPECT_GE(ResidentBytes() + kSlack, before + kSize);
  ASSERT_EQ(munmap(memory, kSize), 0);
  EXPECT_LE(ResidentBytes(), before + kSlack);
  EXPECT_GE(PeakResidentBytes() + kSlack, before + kSize);
  ASSERT_TRUE(ResetPeakResident());
  EXPECT_LE(PeakResidentBytes(), before + kSlack);
}

TEST(ProcessState, CountsDescriptors) {
  const std::size_t before = OpenDescriptors();
  EXPECT_EQ(OpenDescriptors(), before);
  const int file = open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(file, 0);
  EXPECT_EQ(OpenDescriptors(), before + 1);
  const std::vector<std::string> all = DescribeDescriptors();
  EXPECT_NE(std::find(all.begin(), all.end(), std::to_string(file) + " /dev/null"), all.end());
  close(file);
  EXPECT_EQ(OpenDescriptors(), before);
}

}  // namespace
}  // namespace lumtest
