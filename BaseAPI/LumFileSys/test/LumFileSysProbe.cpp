// A process for the tests to look at from outside: it compresses in main, and again in a destructor
// that runs when the objects of the main thread are gone, and with them the memory that the first
// calls took. Its exit status is 0 unless something is wrong.

#include <unistd.h>

#include <cstring>

#include "LumFileSys.h"
#include "support/Alloc.h"

namespace {

int Failures() {
  static char first[200];
  static char second[200];
  const std::size_t before = lumtest::LiveNews();
  const int one = LumCompressAndDeCompress::GzipCompress("some text", 9, first, sizeof first);
  const int two = LumCompressAndDeCompress::GzipCompress("some text", 9, second, sizeof second);
  const bool same =
      one > 0 && one == two && std::memcmp(first, second, static_cast<std::size_t>(one)) == 0;
  return (same ? 0 : 1) + (lumtest::LiveNews() == before + 1 ? 0 : 2);
}

int g_failures = 0;
std::size_t g_newsAtStart = 0;

struct LastReport {
  ~LastReport() {
    const int kept = lumtest::LiveNews() == g_newsAtStart ? 0 : 4;
    _exit(g_failures + kept + 8 * Failures());
  }
};

LastReport g_lastReport;

}  // namespace

int main() {
  g_newsAtStart = lumtest::LiveNews();
  g_failures = Failures();
  return 0;
}
