// The peak of this program's resident memory.

#ifndef LUM_BENCH_PEAK_H
#define LUM_BENCH_PEAK_H

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace lumbench {

// Prints it in KiB on standard error, as the last line. What getrusage tells would include the
// process that this one was forked from.
inline void PrintPeakMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) {
      std::fprintf(stderr, "%ld\n", std::strtol(line.c_str() + 6, nullptr, 10));
    }
  }
}

}  // namespace lumbench

#endif  // LUM_BENCH_PEAK_H
