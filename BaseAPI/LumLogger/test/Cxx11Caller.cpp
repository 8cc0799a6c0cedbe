// The public header as a C++11 translation unit uses it; linked into the tests.

#include "LumLogger.h"

#if __cplusplus >= 201402L
#error "this file is to be compiled as C++11"
#endif

const int& Cxx11LevelByReference();
void Cxx11Log(const char* text);

const int& Cxx11LevelByReference() {
  return LumLogger::kWarning;
}

void Cxx11Log(const char* text) {
  LumLogger::GetInstance().Log("cxx11", 11, "Cxx11Log", " ", "", LumLogger::kError, "%s", text);
}
