// A process for the tests to look at from outside: it compresses in main, and again in a destructor
// that runs when the objects of the main thread are gone. Its exit status is the number of
// failures.

#include <unistd.h>

#include <cstring>

#include "LumFileSys.h"

namespace {

int Failures() {
  static char first[200];
  static char second[200];
  const int one = LumCompressAndDeCompress::GzipCompress("some text", 9, first, sizeof first);
  const int two = LumCompressAndDeCompress::GzipCompress("some text", 9, second, sizeof second);
  return one > 0 && one == two && std::memcmp(first, second, static_cast<std::size_t>(one)) == 0
             ? 0
             : 1;
}

int g_failures = 0;

struct LastReport {
  ~LastReport() { _exit(g_failures + Failures()); }
};

LastReport g_lastReport;

}  // namespace

int main() {
  g_failures = Failures();
  return 0;
}
