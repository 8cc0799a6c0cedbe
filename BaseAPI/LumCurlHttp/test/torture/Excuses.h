// Faults of other people's libraries, by name.

#ifndef LUM_TEST_TORTURE_EXCUSES_H
#define LUM_TEST_TORTURE_EXCUSES_H

#include <string>

#include "Fault.h"

namespace lumtest {

// Whether what such a library is known to do wrong explains the verdict.
bool IsExcused(const std::string& reason, const FaultRecord& record);

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_EXCUSES_H
