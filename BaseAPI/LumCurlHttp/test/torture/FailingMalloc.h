// The malloc family of the whole program, of which one allocation can be made to fail.

#ifndef LUM_TEST_TORTURE_FAILINGMALLOC_H
#define LUM_TEST_TORTURE_FAILINGMALLOC_H

#include "Fault.h"

namespace lumtest {

// Allocations of any library in the process, operator new and strdup among them: they all end at
// the malloc that a program with this source defines. Not for programs under a sanitizer, which
// defines its own.
class FailingMalloc : public Fault {
 public:
  std::string Name() const override { return "allocation"; }
  void Arm(std::size_t nth) override;
  void Disarm() override;
  bool Struck() const override;
  bool MayThrow() const override { return true; }
};

// The blocks that this thread has allocated less those that it has freed.
long LiveBlocksOfThisThread();

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_FAILINGMALLOC_H
