// Does not compile: the compiler compares the arguments of sprintf_s with its format.
#include "LumBoundsCheck.h"

int FormatWrongly(char* buffer, rsize_t capacity) {
  return sprintf_s(buffer, capacity, "%s", 1);
}
