// operator new and delete over the malloc family, and that over what LUM_BENEATH names.

#include "support/Alloc.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#define LUM_JOIN2(prefix, name) prefix##name
#define LUM_JOIN(prefix, name) LUM_JOIN2(prefix, name)
#define LUM_REAL(name) LUM_JOIN(LUM_BENEATH, name)  // __libc_malloc, say

extern "C" {
void* LUM_REAL(malloc)(std::size_t size);
void* LUM_REAL(calloc)(std::size_t count, std::size_t size);
void* LUM_REAL(realloc)(void* block, std::size_t size);
void* LUM_REAL(memalign)(std::size_t alignment, std::size_t size);
void LUM_REAL(free)(void* block);
}

namespace {

// Plain numbers: malloc is called before any constructor and after every destructor.
std::atomic<std::size_t> g_live{0};
std::atomic<void (*)()> g_hook{nullptr};
thread_local std::size_t t_news = 0;
thread_local long t_blocks = 0;
thread_local bool t_inNew = false;    // operator new is at work
thread_local std::size_t t_left = 0;  // occasions up to the one that fails; 0: none does
thread_local bool t_newsAlone = false;
thread_local bool t_paused = false;
thread_local bool t_failed = false;

bool Fails() {
  if (t_left == 0 || t_paused || (t_newsAlone && !t_inNew) || --t_left != 0) {
    return false;
  }
  t_failed = true;
  if (void (*const hook)() = g_hook) {
    hook();
  }
  errno = ENOMEM;
  return true;
}

void* Counted(void* block) {
  t_blocks += block != nullptr ? 1 : 0;
  return block;
}

void Arm(std::size_t count, bool newsAlone) {
  t_failed = false;
  t_newsAlone = newsAlone;
  t_left = count;
}

}  // namespace

// Every library of the process has to find these.
#pragma GCC visibility push(default)
extern "C" {

void* malloc(std::size_t size) {
  return Fails() ? nullptr : Counted(LUM_REAL(malloc)(size));
}

void* calloc(std::size_t count, std::size_t size) {
  return Fails() ? nullptr : Counted(LUM_REAL(calloc)(count, size));
}

void* realloc(void* block, std::size_t size) {
  if (block == nullptr) {
    return malloc(size);
  }
  if (size == 0) {
    free(block);
    return nullptr;
  }
  return Fails() ? nullptr : LUM_REAL(realloc)(block, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
  return Fails() ? nullptr : Counted(LUM_REAL(memalign)(alignment, size));
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

// A sanitizer's own takes no memory from here, and what it gives is freed here.
char* strdup(const char* text) {
  const std::size_t size = std::strlen(text) + 1;
  void* const copy = malloc(size);
  return copy != nullptr ? static_cast<char*>(std::memcpy(copy, text, size)) : nullptr;
}

char* __strdup(const char* text) {
  return strdup(text);
}

void free(void* block) {
  t_blocks -= block != nullptr ? 1 : 0;
  LUM_REAL(free)(block);
}

}  // extern "C"
#pragma GCC visibility pop

namespace {

// Null when the allocation fails, of itself or on cue.
void* Allocate(std::size_t size, std::size_t alignment) noexcept {
  ++t_news;
  t_inNew = true;
  size = std::max<std::size_t>(size, 1);
  void* const memory =
      alignment <= alignof(std::max_align_t) ? malloc(size) : memalign(alignment, size);
  t_inNew = false;
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
    free(memory);
  }
}

}  // namespace

namespace lumtest {

void FailNextNew(std::size_t count) {
  Arm(count, true);
}

void FailNextMalloc(std::size_t count) {
  Arm(count, false);
}

void PauseFailing(bool paused) {
  t_paused = paused;
}

bool AllocationHasFailed() {
  return t_failed;
}

void OnAllocationFailure(void (*hook)()) {
  g_hook = hook;
}

std::size_t NewsOfThisThread() {
  return t_news;
}

std::size_t LiveNews() {
  return g_live.load(std::memory_order_relaxed);
}

long LiveBlocksOfThisThread() {
  return t_blocks;
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
