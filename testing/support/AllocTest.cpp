// The replaced operator new.

#include "support/Alloc.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <list>
#include <memory>
#include <new>
#include <string>
#include <thread>

namespace lumtest {
namespace {

struct alignas(128) Wide {
  char bytes[128];
};

// The compiler may leave out a new that is deleted at once, so that pointers go through here.
template <typename T>
T* Keep(T* pointer) {
  T* volatile kept = pointer;
  return kept;
}

TEST(Alloc, FailsTheAllocationThatIsAskedFor) {
  for (std::size_t failing = 1; failing <= 4; ++failing) {
    std::size_t made = 0;
    FailNextNew(failing);
    try {
      std::list<int> list;
      for (int i = 0; i < 4; ++i) {
        list.push_back(i);
        ++made;
      }
      FAIL() << "allocation " << failing << " succeeded";
    } catch (const std::bad_alloc&) {
      EXPECT_TRUE(AllocationHasFailed());
      EXPECT_EQ(made, failing - 1);
    }
  }
  // Only one fails.
  delete Keep(new int(1));
  FailNextNew(0);
  EXPECT_FALSE(AllocationHasFailed());
}

TEST(Alloc, FailsInEveryForm) {
  const auto fails = [](auto allocate) {
    FailNextNew(1);
    try {
      return allocate() == nullptr && AllocationHasFailed();
    } catch (const std::bad_alloc&) {
      return AllocationHasFailed();
    }
  };
  EXPECT_TRUE(fails([] { return Keep(new int); }));
  EXPECT_TRUE(fails([] { return Keep(new int[3]); }));
  EXPECT_TRUE(fails([] { return Keep(new Wide); }));
  EXPECT_TRUE(fails([] { return Keep(new Wide[3]); }));
  EXPECT_TRUE(fails([] { return Keep(new (std::nothrow) int); }));
  EXPECT_TRUE(fails([] { return Keep(new (std::nothrow) int[3]); }));
  EXPECT_TRUE(fails([] { return Keep(new (std::nothrow) Wide); }));
  EXPECT_TRUE(fails([] { return Keep(new (std::nothrow) Wide[3]); }));
  FailNextNew(0);
}

TEST(Alloc, CountsWhatIsLive) {
  const std::size_t live = LiveNews();
  const std::size_t news = NewsOfThisThread();
  int* const one = Keep(new int);
  int* const many = Keep(new int[3]);
  Wide* const wide = Keep(new Wide);
  Wide* const wides = Keep(new (std::nothrow) Wide[2]);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(wide) % alignof(Wide), 0u);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(wides) % alignof(Wide), 0u);
  EXPECT_EQ(LiveNews(), live + 4);
  EXPECT_EQ(NewsOfThisThread(), news + 4);
  delete one;
  delete[] many;
  delete wide;
  delete[] wides;
  EXPECT_EQ(LiveNews(), live);
  EXPECT_EQ(NewsOfThisThread(), news + 4);
}

TEST(Alloc, ReachesIntoTheStandardLibrary) {
  // std::string's and the stream's code lies in a shared library.
  std::string text(100, 'x');
  FailNextNew(1);
  EXPECT_THROW(text.append(1000, 'y'), std::bad_alloc);
  EXPECT_EQ(text, std::string(100, 'x'));
  FailNextNew(0);
}

TEST(Alloc, LeavesOtherThreadsAlone) {
  FailNextNew(1);
  std::thread* thread = nullptr;
  EXPECT_THROW(thread = new std::thread, std::bad_alloc);
  FailNextNew(1000000);
  bool good = false;
  std::thread other([&good] {
    const std::size_t before = NewsOfThisThread();
    FailNextNew(1000);
    std::string(200, 'x').swap(*std::make_unique<std::string>());
    good = !AllocationHasFailed() && NewsOfThisThread() > before;
  });
  other.join();
  EXPECT_TRUE(good);
  EXPECT_FALSE(AllocationHasFailed());
  FailNextNew(0);
  delete thread;
}

}  // namespace
}  // namespace lumtest
