// A file beyond the range of 32-bit sizes: it arrives whole, in memory that does not depend on it.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "LumFileSys.h"
#include "UnpackedArchive.h"
#include "support/Process.h"
#include "support/ProcessState.h"

namespace {

constexpr std::uint64_t kSize = (std::uint64_t{1} << 31) + 12345;
constexpr std::size_t kMebibyte = std::size_t{1} << 20;

// The most memory that packing `path` adds to what the process holds.
std::size_t MemoryToPack(const std::string& path) {
  EXPECT_TRUE(lumtest::ResetPeakResident());
  const std::size_t before = lumtest::ResidentBytes();
  EXPECT_EQ(LumCompressAndDeCompress::CompressFile(path.c_str()), 0) << std::strerror(errno);
  return lumtest::PeakResidentBytes() - before;
}

TEST(LumBigArchive, FileBeyondTwoGibibytesInFlatMemory) {
  // A file system in memory reads holes without making pages of them.
  if (access("/dev/shm", W_OK) == 0) {
    setenv("TMPDIR", "/dev/shm", 1);
  }
  const lumtest::TempDir dir;
  const std::string path = dir.Path("big");
  lumtest::MakeSparseFile(path, kSize);
  lumtest::AppendFile(path, "the end");
  const std::string small = dir.Write("small", std::string(kMebibyte, 's'));

  MemoryToPack(small);  // whatever is needed once
  EXPECT_LT(MemoryToPack(small), 16 * kMebibyte);
  EXPECT_LT(MemoryToPack(path), 16 * kMebibyte);

  std::uint64_t size = 0;
  std::string head;
  std::string tail;
  EXPECT_TRUE(lumtest::Inflate(lumtest::ReadFile(path + ".tar.gz"), [&](std::string_view piece) {
    size += piece.size();
    if (head.size() < 512) {
      head += piece.substr(0, 512 - head.size());
    }
    tail += piece;
    tail.erase(0, tail.size() - std::min<std::size_t>(tail.size(), 4096));
  }));
  // Header, content up to the next 512 bytes, two blocks of zeros.
  EXPECT_EQ(size, 512 + (kSize + 7 + 511) / 512 * 512 + 1024);
  EXPECT_EQ(tail.find("the end"), 4096 - 1024 - 512 + (kSize % 512));
  lumtest::ProcessOptions header;
  header.input = head;
  const lumtest::ProcessResult list = lumtest::RunCommand({"tar", "-tvf", "-"}, header);
  EXPECT_NE(list.out.find(" " + std::to_string(kSize + 7) + " "), std::string::npos)
      << list.Describe();
}

}  // namespace
