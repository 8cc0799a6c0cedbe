// One allocation of the whole program that fails.

#ifndef LUM_TEST_TORTURE_FAILINGMALLOC_H
#define LUM_TEST_TORTURE_FAILINGMALLOC_H

#include <memory>
#include <string>

#include "Fault.h"
#include "support/Alloc.h"

namespace lumtest {

// Allocations of any library in the process.
class FailingMalloc : public Fault {
 public:
  std::string Name() const override { return "allocation"; }
  void Arm(std::size_t nth) override {
    m_struck = false;
    OnAllocationFailure(&RecordFault);
    FailNextMalloc(nth);
  }
  void Disarm() override {
    m_struck = AllocationHasFailed();
    FailNextMalloc(0);
  }
  bool Struck() const override { return m_struck || AllocationHasFailed(); }
  bool MayThrow() const override { return true; }

 private:
  bool m_struck = false;  // as of Disarm
};

inline Faults Allocations() {
  Faults faults;
  faults.push_back(std::make_unique<FailingMalloc>());
  return faults;
}

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_FAILINGMALLOC_H
