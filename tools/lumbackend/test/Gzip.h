// Packing for tests.
#ifndef LUM_BACKEND_TEST_GZIP_H
#define LUM_BACKEND_TEST_GZIP_H

#include <string>

#include "support/Process.h"

namespace lumtest {

// One gzip member.
inline std::string Gzip(const std::string& text) {
  ProcessOptions options;
  options.input = text;
  return RunCommand({"gzip", "-9n"}, options).out;
}

}  // namespace lumtest

#endif  // LUM_BACKEND_TEST_GZIP_H
