// Tests of GzipCompress. What it writes is read back by zlib and by gzip; both buffers end at a
// page that must not be touched.

#include <gtest/gtest.h>
#ifdef __x86_64__
#include <cpuid.h>
#include <immintrin.h>
#endif
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "LumFileSys.h"
#include "UnpackedArchive.h"
#include "support/Process.h"
#include "support/Threads.h"

namespace {

using lumtest::Noise;

// Memory whose last byte lies right before a page without access.
class GuardedBuffer {
 public:
  explicit GuardedBuffer(std::size_t size)
      : m_page(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
        m_usable((size + m_page) / m_page * m_page),
        m_map(static_cast<char*>(mmap(nullptr, m_usable + m_page, PROT_READ | PROT_WRITE,
                                      MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
    mprotect(m_map + m_usable, m_page, PROT_NONE);
  }
  ~GuardedBuffer() { munmap(m_map, m_usable + m_page); }
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;

  // The last `size` bytes before the guard.
  char* Last(std::size_t size) const { return m_map + m_usable - size; }

 private:
  std::size_t m_page;
  std::size_t m_usable;
  char* m_map;
};

std::string Text(std::size_t size) {
  std::mt19937 random(3);
  std::string text = "{\n";
  while (text.size() < size) {
    text += "  \"key" + std::to_string(random() % 50) + "\" : " + std::to_string(random()) + ",\n";
  }
  text.resize(size);
  return text;
}

// What one gzip member that fills `packed` unpacks to; "not one member" for anything else.
std::string Inflated(std::string_view packed) {
  std::string plain;
  return lumtest::Inflate(packed, [&](std::string_view piece) { plain += piece; })
             ? plain
             : "not one member";
}

int Compress(const std::string& source, char* destination, std::size_t size) {
  return LumCompressAndDeCompress::GzipCompress(source.data(), static_cast<int>(source.size()),
                                                destination, static_cast<int>(size));
}

std::string Compressed(const std::string& source) {
  std::string out(source.size() + source.size() / 65535 * 5 + 100, '\0');
  const int length = Compress(source, &out[0], out.size());
  EXPECT_GT(length, 0);
  out.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return out;
}

// Every kind of content at one length: comes back whole, from a buffer that just suffices too, and
// never a byte is written outside.
void CheckLength(std::size_t size) {
  for (const std::string& plain : {Text(size), Noise(size), std::string(size, 'a')}) {
    const GuardedBuffer sourceMemory(size);
    char* const source = sourceMemory.Last(size);
    std::memcpy(source, plain.data(), size);
    const std::size_t needed = Compressed(plain).size();
    EXPECT_LE(needed, size + 18 + 5 * (size / 65535 + 1)) << size;

    const GuardedBuffer memory(needed + 64);
    for (const std::size_t capacity : {needed - 1, needed, needed + 1}) {
      char* const destination = memory.Last(capacity);
      std::memset(destination - 16, '#', 16);
      const int length = LumCompressAndDeCompress::GzipCompress(
          source, static_cast<int>(size), destination, static_cast<int>(capacity));
      EXPECT_EQ(std::string(destination - 16, 16), std::string(16, '#')) << size;
      if (capacity < needed) {
        EXPECT_LE(length, 0) << size;
      } else {
        ASSERT_EQ(length, static_cast<int>(needed)) << size;
        EXPECT_TRUE(Inflated({destination, needed}) == plain) << size;
      }
    }
  }
}

TEST(LumGzipCompress, EveryShortLengthAndSomeUpToSeventyThousand) {
  for (std::size_t size = 0; size <= 70000; size += size < 301 ? 1 : 1999) {
    CheckLength(size);
  }
  for (const std::size_t size : {32767, 32768, 32769, 65534, 65535, 65536, 65537, 70000}) {
    CheckLength(size);
  }
}

TEST(LumGzipCompress, EveryCapacityUpToTheOneNeeded) {
  for (const std::size_t size : {0, 1, 17, 100, 1000}) {
    for (const std::string& plain : {Text(size), Noise(size)}) {
      const std::size_t needed = Compressed(plain).size();
      const GuardedBuffer memory(needed + 1);
      for (std::size_t capacity = 0; capacity <= needed + 1; ++capacity) {
        const int length = Compress(plain, memory.Last(capacity), capacity);
        if (capacity < needed) {
          EXPECT_LE(length, 0) << size << ' ' << capacity;
        } else {
          EXPECT_EQ(length, static_cast<int>(needed)) << size << ' ' << capacity;
        }
      }
    }
  }
}

TEST(LumGzipCompress, RoomAfterTheMemberIsLeftAlone) {
  const std::string plain = Text(500);
  const std::size_t needed = Compressed(plain).size();
  const GuardedBuffer memory(2000);
  std::memset(memory.Last(1900), '#', 1900);
  ASSERT_EQ(Compress(plain, memory.Last(1900), 1000), static_cast<int>(needed));
  EXPECT_EQ(std::string(memory.Last(900), 900), std::string(900, '#'));
}

// Gzip, deflate, no extras, and no time: equal in, equal out. The rest is zlib's and gzip's to see.
TEST(LumGzipCompress, MemberBeginsWithThePlainestHeader) {
  EXPECT_EQ(Compressed(Text(5000)).substr(0, 8), std::string("\x1f\x8b\x08\0\0\0\0\0", 8));
}

TEST(LumGzipCompress, GzipReadsIt) {
  const lumtest::TempDir dir;
  std::string packed;
  std::string plain;
  for (const std::size_t size : {0, 1, 20, 1000, 70000, 3000000}) {  // gunzip joins members
    packed += Compressed(Text(size)) + Compressed(Noise(size));
    plain += Text(size) + Noise(size);
  }
  const std::string path = dir.Write("members.gz", packed);
  const lumtest::ProcessResult test = lumtest::RunCommand({"gzip", "-t", path});
  EXPECT_TRUE(test.Succeeded()) << test.Describe();
  EXPECT_TRUE(lumtest::RunCommand({"zcat", path}).out == plain);
}

TEST(LumGzipCompress, CompressesWhatRepeats) {
  EXPECT_LT(Compressed(Text(70000)).size(), 70000U / 2);
  EXPECT_LT(Compressed(std::string(1 << 20, ' ')).size(), 10000U);
}

// A report's document is compressed into twice its length.
TEST(LumGzipCompress, VeryShortDocumentsDoNotFitTwiceTheirLength) {
  char out[128];
  for (const std::string document : {"{}\n", "[]\n", "null\n", "\"x\"\n", "{\n  \"a\" : 1\n}\n"}) {
    EXPECT_LE(Compress(document, out, 2 * document.size()), 0) << document;
  }
  for (std::size_t size = 23; size <= 60; ++size) {
    EXPECT_GT(Compress(Noise(size), out, 2 * size), 0) << size;
    EXPECT_GT(Compress(Text(size), out, 2 * size), 0) << size;
  }
}

TEST(LumGzipCompress, ArgumentsThatMakeNoSense) {
  char buffer[64] = {};
  const struct {
    const char* source;
    int sourceLength;
    char* destination;
    int destinationLength;
  } kCases[] = {
      {nullptr, 4, buffer, 64}, {nullptr, 0, buffer, 64}, {"text", 4, nullptr, 64},
      {"text", 4, nullptr, 0},  {"text", -1, buffer, 64}, {"text", INT_MIN, buffer, 64},
      {"text", 4, buffer, 0},   {"text", 4, buffer, -1},  {"text", 4, buffer, INT_MIN},
  };
  for (const auto& row : kCases) {
    EXPECT_LE(LumCompressAndDeCompress::GzipCompress(row.source, row.sourceLength, row.destination,
                                                     row.destinationLength),
              0);
  }
  EXPECT_EQ(std::string(buffer, 64), std::string(64, '\0'));
}

#ifdef __x86_64__
// Whether a vector register's upper half is in use on this thread (Intel 64 and IA-32 Architectures
// Software Developer's Manual, volume 1, 13.1, 13.6 and XGETBV with ECX = 1).
class UpperHalves {
 public:
  // False where there are none, or where the processor does not tell.
  static bool CanBeSeen() {
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    if (!__builtin_cpu_supports("avx") || __get_cpuid_count(0xD, 1, &eax, &ebx, &ecx, &edx) == 0 ||
        (eax & 4U) == 0) {
      return false;
    }
    Use();
    const bool used = AreInUse();
    Clear();
    return used && !AreInUse();
  }
  __attribute__((target("xsave"))) static bool AreInUse() {
    constexpr unsigned long long kOfYmm = 1U << 2;
    constexpr unsigned long long kOfZmm = 1U << 6;
    return (_xgetbv(1) & (kOfYmm | kOfZmm)) != 0;
  }
  __attribute__((target("avx"))) static void Use() {
    __asm__ volatile("vpcmpeqd %%xmm0, %%xmm0, %%xmm0\n\tvinsertf128 $1, %%xmm0, %%ymm0, %%ymm0" ::
                         : "xmm0");
  }
  __attribute__((target("avx"))) static void Clear() { _mm256_zeroupper(); }
};

// Everything else on the thread would run several times slower.
TEST(LumGzipCompress, LeavesNoUpperHalfOfAVectorRegisterInUse) {
  if (!UpperHalves::CanBeSeen()) {
    return;
  }
  std::vector<char> out(200'000);
  const std::string plain = Text(100'000);
  UpperHalves::Use();
  ASSERT_TRUE(UpperHalves::AreInUse());
  ASSERT_GT(Compress(plain, out.data(), out.size()), 0);
  EXPECT_FALSE(UpperHalves::AreInUse());

  const lumtest::TempDir directory;
  const std::string path = directory.Write("log", plain);
  UpperHalves::Use();
  ASSERT_EQ(LumCompressAndDeCompress::CompressFile(path.c_str()), 0);
  EXPECT_FALSE(UpperHalves::AreInUse());
}
#endif

// The window was once as large as a number in memory that nobody had set said it was.
TEST(LumGzipCompress, WhatTheMemoryHeldBeforeDoesNotShow) {
  const std::string plain = Text(20'000);
  std::vector<std::string> outputs;
  for (const std::uint16_t left : {0, 1, 4, 9}) {
    std::thread([&] {  // each thread's first call takes memory
      for (std::size_t size = 70'000; size < 100'000; size += 1'000) {
        std::vector<std::uint16_t> dirt(size / 2, left);
        // Used, or the compiler leaves it out.
        ASSERT_EQ(std::count(dirt.begin(), dirt.end(), left), static_cast<long>(size / 2));
      }
      std::string packed(2 * plain.size(), '\0');
      const int length = Compress(plain, &packed[0], packed.size());
      ASSERT_GT(length, 0);
      packed.resize(static_cast<std::size_t>(length));
      outputs.push_back(packed);
    })
        .join();
  }
  ASSERT_EQ(outputs.size(), 4u);
  for (const std::string& output : outputs) {
    EXPECT_TRUE(output == outputs[0]) << output.size() << " bytes, not " << outputs[0].size();
  }
}

TEST(LumGzipCompress, ThreadsDoNotMeet) {
  lumtest::OnThreads(8, [](int id) {
    for (int i = 0; i < 20; ++i) {
      const auto size = static_cast<std::size_t>(1000 * (id + 1) + i);
      EXPECT_TRUE(Inflated(Compressed(Text(size))) == Text(size)) << size;
    }
  });
}

TEST(LumGzipCompress, DestructorOfAStaticObjectMayCompress) {
  const lumtest::ProcessResult probe = lumtest::RunCommand({LUM_FILE_SYS_PROBE});
  EXPECT_TRUE(probe.Succeeded()) << probe.Describe();
}

}  // namespace
