// Stands apart from the tests so that no call of it is inlined: the compiler would otherwise see
// free() called on what new gave.

#include "FailingAllocation.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int t_allocationsLeft = -1;

}  // namespace

void FailAllocationsAfter(int count) {
  t_allocationsLeft = count;
}

void* operator new(std::size_t size) {
  void* const memory = t_allocationsLeft == 0 ? nullptr : std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  if (t_allocationsLeft > 0) {
    --t_allocationsLeft;
  }
  return memory;
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
