// A file beyond the range of 32-bit sizes: it arrives whole, in memory that does not depend on it.

#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "LumFileSys.h"
#include "support/Files.h"
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

// What zlib gets out of a file of gzip: how much, its last bytes, and whether it ended as it
// should, checksum and length included.
struct Unpacked {
  bool whole = false;
  std::uint64_t size = 0;
  std::string head;
  std::string tail;
};

Unpacked Unpack(const std::string& path) {
  const std::string packed = lumtest::ReadFile(path);
  Unpacked unpacked;
  std::string block(1 << 16, '\0');
  z_stream stream = {};
  inflateInit2(&stream, 15 + 16);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
  stream.avail_in = static_cast<uInt>(packed.size());
  int result = Z_OK;
  while (result == Z_OK) {
    stream.next_out = reinterpret_cast<Bytef*>(&block[0]);
    stream.avail_out = static_cast<uInt>(block.size());
    result = inflate(&stream, Z_NO_FLUSH);
    const std::size_t got = block.size() - stream.avail_out;
    if (unpacked.size == 0) {
      unpacked.head = block.substr(0, std::min<std::size_t>(got, 512));
    }
    unpacked.tail.append(block, got > 4096 ? got - 4096 : 0, std::min<std::size_t>(got, 4096));
    unpacked.tail.erase(0, unpacked.tail.size() > 4096 ? unpacked.tail.size() - 4096 : 0);
    unpacked.size += got;
  }
  unpacked.whole = result == Z_STREAM_END && stream.avail_in == 0;
  inflateEnd(&stream);
  return unpacked;
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

  const Unpacked unpacked = Unpack(path + ".tar.gz");
  EXPECT_TRUE(unpacked.whole);
  // Header, content up to the next 512 bytes, two blocks of zeros.
  EXPECT_EQ(unpacked.size, 512 + (kSize + 7 + 511) / 512 * 512 + 1024);
  EXPECT_EQ(unpacked.tail.find("the end"), 4096 - 1024 - 512 + (kSize % 512));
  lumtest::ProcessOptions header;
  header.input = unpacked.head;
  const lumtest::ProcessResult list = lumtest::RunCommand({"tar", "-tvf", "-"}, header);
  EXPECT_NE(list.out.find(" " + std::to_string(kSize + 7) + " "), std::string::npos)
      << list.Describe();
}

}  // namespace
