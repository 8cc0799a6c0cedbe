// The three functions stand on memset, memcpy and vsnprintf; here is only the checking.
#include "LumBoundsCheck.h"

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

constexpr rsize_t kMaxSize = SIZE_MAX / 2;

bool IsUsable(const void* destination, rsize_t capacity) {
  return destination != nullptr && capacity <= kMaxSize;
}

errno_t SizeVerdict(rsize_t capacity, rsize_t count) {
  return capacity > kMaxSize || count > capacity ? ERANGE : 0;
}

// Addresses as integers: comparing pointers into different objects is not defined. Of the two
// differences one is the distance; the other wraps around, far beyond any count.
bool Overlaps(const void* first, const void* second, rsize_t count) {
  const auto a = reinterpret_cast<std::uintptr_t>(first);
  const auto b = reinterpret_cast<std::uintptr_t>(second);
  return a - b < count || b - a < count;
}

int RefuseText(char* destination, rsize_t capacity, errno_t error) {
  if (IsUsable(destination, capacity) && capacity > 0) {
    destination[0] = '\0';
  }
  return -error;
}

}  // namespace

errno_t memset_s(void* destination, rsize_t capacity, int value, rsize_t count) {
  const errno_t error = destination == nullptr ? EINVAL : SizeVerdict(capacity, count);
  if (IsUsable(destination, capacity)) {
    std::memset(destination, value, error == 0 ? count : capacity);
    // Tells the optimiser that somebody may read the bytes, so that the store is never dead, not
    // even when this function is inlined. Costs no instruction.
    __asm__ __volatile__("" : : "r"(destination) : "memory");
  }
  return error;
}

errno_t memcpy_s(void* destination, rsize_t capacity, const void* source, rsize_t count) {
  errno_t error =
      destination == nullptr || source == nullptr ? EINVAL : SizeVerdict(capacity, count);
  if (error == 0 && Overlaps(destination, source, count)) {
    error = EINVAL;
  }
  if (error == 0) {
    std::memcpy(destination, source, count);
  } else if (IsUsable(destination, capacity)) {
    std::memset(destination, 0, capacity);
  }
  return error;
}

int sprintf_s(char* destination, rsize_t capacity, const char* format, ...) {
  if (destination == nullptr || format == nullptr) {
    return RefuseText(destination, capacity, EINVAL);
  }
  if (capacity == 0 || capacity > kMaxSize) {
    return RefuseText(destination, capacity, ERANGE);
  }
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(destination, capacity, format, arguments);
  va_end(arguments);
  if (length < 0) {
    return RefuseText(destination, capacity, EINVAL);
  }
  if (static_cast<rsize_t>(length) >= capacity) {
    return RefuseText(destination, capacity, ERANGE);
  }
  return length;
}
