// Faults of other people's libraries, by name.

#ifndef LUM_TEST_TORTURE_EXCUSES_H
#define LUM_TEST_TORTURE_EXCUSES_H

#include <string>

#include "Fault.h"

namespace lumtest {

// What a library does wrong when one of its allocations fails.
struct Excuse {
  const char* what;      // part of the verdict's reason
  const char* library;   // "libcrypto.so.3": whose code ended the process, or met the fault
  const char* function;  // of that library, on the stack there; "": none that it exports
};

// Null when nothing excuses the verdict.
const Excuse* FindExcuse(const std::string& reason, const FaultRecord& record);

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_EXCUSES_H
