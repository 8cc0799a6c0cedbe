// A process for the tests to look at from outside, in C++11: records from main, by every level, and
// one from a static object that is destroyed after everything that main made.

#include "LumLogger.h"

#if __cplusplus >= 201402L
#error "this file is to be compiled as C++11"
#endif

namespace {

class LastWords {
 public:
  ~LastWords() {
    LumLogger::GetInstance().Log("probe", 2, "~LastWords", " ", "", LumLogger::kInfo, "static");
  }
};

LastWords g_lastWords;

}  // namespace

int main() {
  // A level that is bound to a reference or pointed to is looked for in the library.
  const int* const volatile levels[] = {&LumLogger::kSilent, &LumLogger::kError,
                                        &LumLogger::kWarning, &LumLogger::kInfo};
  for (const int* level : levels) {
    LumLogger::GetInstance().Log("probe", 1, "main", " ", "", *level, "level %d", *level);
  }
  return 0;
}
