// A caller in C++11 that includes this header before and after the system's.
#include "LumBoundsCheck.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "LumBoundsCheck.h"

static_assert(__cplusplus == 201103L, "this file stands for callers in C++11");

int CallAllFromCpp11(char* buffer, rsize_t capacity) {
  char digits[16];
  errno_t error = memset_s(digits, sizeof(digits), 0, sizeof(digits));
  if (error == 0) {
    error = memcpy_s(digits, sizeof(digits), "12345", 5);
  }
  return error != 0 ? -1 : sprintf_s(buffer, capacity, "%s-%d", digits, 6);
}
