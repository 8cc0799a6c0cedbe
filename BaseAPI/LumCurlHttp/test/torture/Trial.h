// Operations on scenarios, each under every fault of a kind in turn.

#ifndef LUM_TEST_TORTURE_TRIAL_H
#define LUM_TEST_TORTURE_TRIAL_H

#include <chrono>
#include <cstddef>
#include <vector>

#include "Fault.h"
#include "Subject.h"

namespace lumtest {

struct Trial {
  Subject subject;
  Connection connection;
  Scenario scenario;
  Faults (*faults)();  // what is to strike, each kind on its own
};

// How often its runs came out how.
struct Result {
  std::size_t same = 0;
  std::size_t failed = 0;
  std::size_t threw = 0;
  std::size_t excused = 0;  // bad, by the doing of another library
  std::size_t bad = 0;

  std::size_t Tried() const { return same + failed + threw + excused + bad; }
};

// Runs them in processes of their own, `atOnce` at a time, each to its end: after a crash or a
// hang, which counts as bad, with the next occasion. A run hangs when it takes `margin` longer than
// its operation's limit; the machine may be busy. What is bad is written to the descriptor
// `report`. The process must have no other threads. Results in the order of `trials`.
std::vector<Result> RunAll(const std::vector<Trial>& trials, std::size_t atOnce, int report,
                           std::chrono::seconds margin = std::chrono::seconds(15));

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_TRIAL_H
