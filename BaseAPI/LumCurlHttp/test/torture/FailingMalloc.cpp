// The malloc family over glibc's own.

#include "FailingMalloc.h"

#include <cerrno>
#include <cstdlib>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace {

// Plain numbers: malloc is called before any constructor and after every destructor.
thread_local std::size_t t_left = 0;  // 0: none fails
thread_local bool t_struck = false;
thread_local long t_live = 0;

bool Fails() {
  if (t_left == 0 || --t_left != 0) {
    return false;
  }
  t_struck = true;
  lumtest::RecordFault();
  errno = ENOMEM;
  return true;
}

void* Counted(void* block) {
  t_live += block != nullptr ? 1 : 0;
  return block;
}

}  // namespace

// Every library of the process has to find these.
#pragma GCC visibility push(default)
extern "C" {

void* malloc(std::size_t size) {
  return Fails() ? nullptr : Counted(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
  return Fails() ? nullptr : Counted(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) {
  if (block == nullptr) {
    return malloc(size);
  }
  if (size == 0) {
    free(block);
    return nullptr;
  }
  return Fails() ? nullptr : __libc_realloc(block, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
  return Fails() ? nullptr : Counted(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  void* const made = memalign(alignment, size);
  if (made == nullptr) {
    return ENOMEM;
  }
  *block = made;
  return 0;
}

void free(void* block) {
  t_live -= block != nullptr ? 1 : 0;
  __libc_free(block);
}

}  // extern "C"
#pragma GCC visibility pop

namespace lumtest {

void FailingMalloc::Arm(std::size_t nth) {
  t_struck = false;
  t_left = nth;
}

void FailingMalloc::Disarm() {
  t_left = 0;
}

bool FailingMalloc::Struck() const {
  return t_struck;
}

long LiveBlocksOfThisThread() {
  return t_live;
}

}  // namespace lumtest
