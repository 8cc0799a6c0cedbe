// Lets the product, but not the doubles beneath it, run out of memory. For programs that link
// LumTestAlloc.

#ifndef LUM_TESTING_FAILINGALLOCATION_H
#define LUM_TESTING_FAILINGALLOCATION_H

#include <gtest/gtest.h>

#include <cstddef>
#include <new>

#include "recording/Recorder.h"
#include "support/Alloc.h"

namespace lumtest {

// While it lives, allocation number `nth` (1: the next) that this thread makes outside the doubles
// throws std::bad_alloc. One at a time.
class FailingAllocation {
 public:
  explicit FailingAllocation(std::size_t nth) {
    PauseFailing(InDouble::IsActive());
    InDouble::SetHook(&PauseFailing);
    FailNextNew(nth);
  }
  ~FailingAllocation() {
    FailNextNew(0);
    InDouble::SetHook(nullptr);
    PauseFailing(false);
  }
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  bool HasFailed() const { return AllocationHasFailed(); }
};

// Runs `operation` again and again, each time failing the next one of its allocations, until all
// have had their turn. After each run the operation must have thrown std::bad_alloc exactly when
// one failed; `prepare` comes before each run and `check` behind it. Returns how many failed.
template <typename Prepare, typename Operation, typename Check>
std::size_t FailEachAllocation(Prepare prepare, Operation operation, Check check) {
  for (std::size_t nth = 1;; ++nth) {
    prepare();
    bool threw = false;
    bool failed = false;
    {
      const FailingAllocation failing(nth);
      try {
        operation();
      } catch (const std::bad_alloc&) {
        threw = true;
      }
      failed = failing.HasFailed();
    }
    EXPECT_EQ(threw, failed) << "allocation " << nth;
    check();
    if (!failed || ::testing::Test::HasFailure()) {
      return nth - 1;
    }
  }
}

}  // namespace lumtest

#endif  // LUM_TESTING_FAILINGALLOCATION_H
