// One operation on one scenario, under every fault of a kind in turn.

#ifndef LUM_TEST_TORTURE_TRIAL_H
#define LUM_TEST_TORTURE_TRIAL_H

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <string>

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

// How far a trial is, in memory that its supervisor shares: a process that dies leaves behind where
// it was.
struct Progress {
  // The fault that is on: its place among the trial's, and the occasion.
  std::size_t fault = 0;
  std::size_t nth = 1;
  FaultRecord record;

  std::atomic<unsigned long> runs{0};  // grows with each run

  Result result;  // so far
};

// Counts a bad run, at the fault that is on, and writes it to `report` unless it is excused.
void CountBad(const Trial& trial, Progress& progress, const std::string& reason, FILE* report);

// Runs the trial from where `progress` stands to its end, on this thread of a process that is its
// own. What is bad is written to `report`.
void Run(const Trial& trial, Progress& progress, FILE* report);

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_TRIAL_H
