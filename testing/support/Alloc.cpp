// operator new and delete over malloc and free, with counters.

#include "support/Alloc.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

namespace {

// Plain numbers, so that they are there before any constructor of the program runs.
std::atomic<std::size_t> g_live{0};
thread_local std::size_t t_news = 0;
thread_local std::size_t t_failAt = 0;  // the value of t_news that fails; 0: none
thread_local bool t_failed = false;

// Null when the allocation fails, of itself or on cue.
void* Allocate(std::size_t size, std::size_t alignment) noexcept {
  ++t_news;
  if (t_news == t_failAt) {
    t_failAt = 0;
    t_failed = true;
    return nullptr;
  }
  size = std::max<std::size_t>(size, 1);
  void* memory = nullptr;
  if (alignment <= alignof(std::max_align_t)) {
    memory = std::malloc(size);
  } else if (posix_memalign(&memory, alignment, size) != 0) {
    memory = nullptr;
  }
  if (memory != nullptr) {
    g_live.fetch_add(1, std::memory_order_relaxed);
  }
  return memory;
}

void* AllocateOrThrow(std::size_t size, std::size_t alignment = 1) {
  while (true) {
    if (void* memory = Allocate(size, alignment)) {
      return memory;
    }
    // A failure on cue is final; the handler is for memory that has truly run out.
    const std::new_handler handler = std::get_new_handler();
    if (t_failed || handler == nullptr) {
      throw std::bad_alloc();
    }
    handler();
  }
}

void Free(void* memory) noexcept {
  if (memory != nullptr) {
    g_live.fetch_sub(1, std::memory_order_relaxed);
    std::free(memory);
  }
}

}  // namespace

namespace lumtest {

void FailNextNew(std::size_t count) {
  t_failed = false;
  t_failAt = count == 0 ? 0 : t_news + count;
}

bool NewHasFailed() {
  return t_failed;
}

std::size_t NewsOfThisThread() {
  return t_news;
}

std::size_t LiveNews() {
  return g_live.load(std::memory_order_relaxed);
}

}  // namespace lumtest

void* operator new(std::size_t size) {
  return AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return AllocateOrThrow(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size, 1);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size, 1);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return Allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return Allocate(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* memory) noexcept {
  Free(memory);
}
void operator delete[](void* memory) noexcept {
  Free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  Free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  Free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
  Free(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
  Free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
  Free(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
  Free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  Free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  Free(memory);
}
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
  Free(memory);
}
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
  Free(memory);
}
