// Runs trials in processes of their own, several at a time, and lets neither a crash nor a hang
// pass.

#ifndef LUM_TEST_TORTURE_SUPERVISOR_H
#define LUM_TEST_TORTURE_SUPERVISOR_H

#include <chrono>
#include <cstdio>
#include <vector>

#include "Trial.h"

namespace lumtest {

// Runs them, `atOnce` at a time, each to its end: after a crash or a hang, which counts as bad,
// with the next occasion. A run hangs when it takes `margin` longer than its operation's limit; the
// machine may be busy. The process must have no other threads. Results in the order of `trials`.
std::vector<Result> RunAll(const std::vector<Trial>& trials, std::size_t atOnce, FILE* report,
                           std::chrono::seconds margin = std::chrono::seconds(15));

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_SUPERVISOR_H
