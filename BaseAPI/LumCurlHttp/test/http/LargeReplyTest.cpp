// One piece of a reply that 32 bits do not count.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>

#include "CurlEasy.h"

namespace lumtest {
namespace {

constexpr std::size_t kPage = std::size_t{1} << 21;
constexpr std::size_t kSpan = (std::size_t{1} << 32) + kPage;  // a whole number of pages

// A range of addresses behind which one page of memory stands over and over.
class OnePageOverAndOver {
 public:
  OnePageOverAndOver() { Map(); }
  ~OnePageOverAndOver() {
    if (m_start != MAP_FAILED) {
      munmap(m_start, kSpan);
    }
  }
  OnePageOverAndOver(const OnePageOverAndOver&) = delete;
  OnePageOverAndOver& operator=(const OnePageOverAndOver&) = delete;

  char* Start() const { return static_cast<char*>(m_start); }

 private:
  // ASSERT_* returns from where it stands, which a constructor cannot.
  void Map() {
    ASSERT_NE(m_start, MAP_FAILED);
    const int file = memfd_create("page", 0);
    ASSERT_GE(file, 0);
    ASSERT_EQ(ftruncate(file, kPage), 0);
    for (std::size_t offset = 0; offset < kSpan; offset += kPage) {
      ASSERT_NE(
          mmap(Start() + offset, kPage, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0),
          MAP_FAILED);
    }
    close(file);
  }

  void* const m_start =
      mmap(nullptr, kSpan, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
};

TEST(LargeReplyTest, WriteToStringAppendsAllOfItAndReturnsTheProductInThirtyTwoBits) {
  constexpr std::size_t kCount = (std::size_t{1} << 31) + 3;
  const OnePageOverAndOver memory;
  const OnePageOverAndOver piece;
  ASSERT_FALSE(HasFatalFailure());
  HttpResult result;
  char* const own = result.body._M_data();
  result.body._M_data(memory.Start());
  result.body._M_capacity(kSpan - 1);

  EXPECT_EQ(lumhttp::WriteToString(piece.Start(), 2, kCount, &result), 6U);

  EXPECT_EQ(result.body.size(), 2 * kCount);
  result.body._M_data(own);
  result.body._M_set_length(0);
}

}  // namespace
}  // namespace lumtest
