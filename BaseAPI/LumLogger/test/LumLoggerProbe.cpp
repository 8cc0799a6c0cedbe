// A process for the tests to look at from outside: one record from main, one from a static object
// that is destroyed after everything that main made.

#include "LumLogger.h"

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
  LumLogger::GetInstance().Log("probe", 1, "main", " ", "", LumLogger::kInfo, "in %s", "main");
  return 0;
}
