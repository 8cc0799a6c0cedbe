#include "Fuzz.h"

#include <cstdio>
#include <cstdlib>

namespace lumtest {

void Require(bool holds, const char* what, const char* file, int line) {
  if (!holds) {
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, what);
    std::abort();
  }
}

}  // namespace lumtest
