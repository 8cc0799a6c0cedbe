// Prints the microseconds that dlopen takes for a library in a process that has none of it.
//
//   LumBenchLoad LIBRARY

#include <dlfcn.h>

#include <chrono>
#include <cstdio>

int main(int argc, char** argv) {
  const auto start = std::chrono::steady_clock::now();
  if (argc != 2 || dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) == nullptr) {
    std::fprintf(stderr, "LumBenchLoad: %s\n", argc == 2 ? dlerror() : "name a library");
    return 1;
  }
  const std::chrono::duration<double, std::micro> taken = std::chrono::steady_clock::now() - start;
  std::printf("%.1f\n", taken.count());
  return 0;
}
