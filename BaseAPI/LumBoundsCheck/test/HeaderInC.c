/* A caller in C11, which asks the system for its own Annex K names too, before and after. */
#define __STDC_WANT_LIB_EXT1__ 1
#include "LumBoundsCheck.h"

#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "LumBoundsCheck.h"

int CallAllFromC(char* buffer, rsize_t capacity) {
  char digits[16];
  errno_t error = memset_s(digits, sizeof(digits), 0, sizeof(digits));
  if (error == 0) {
    error = memcpy_s(digits, sizeof(digits), "12345", 5);
  }
  return error != 0 ? -1 : sprintf_s(buffer, capacity, "%s-%d", digits, 6);
}
