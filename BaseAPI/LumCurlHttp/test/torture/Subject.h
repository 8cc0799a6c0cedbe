// The operations of the catalogue as the torture sees them: the answers that each can get, and the
// results with which it may answer a fault.

#ifndef LUM_TEST_TORTURE_SUBJECT_H
#define LUM_TEST_TORTURE_SUBJECT_H

#include <functional>
#include <string>
#include <vector>

#include "World.h"

namespace lumtest {

// One result that the operation's contract states for a failure.
struct StatedFailure {
  enum class Log { kError, kNothing };

  std::string answer;
  std::string line = "";      // in one of the error lines that then must be there
  Log log = Log::kError;      // kNothing: without an error line
  bool wholeRequest = false;  // the answer claims that the request has arrived whole
  bool keepsMemory = false;   // what is then never released, on purpose
};

struct Subject {
  std::string name;

  // Calls it once, by Caller::Try, and tells the result as text.
  std::function<std::string(World&)> run;

  std::vector<Scenario> scenarios = {Scenario::kNone};
  std::vector<StatedFailure> failures = {};

  // Comes before each run: what a call uses up.
  std::function<void(World&)> prepare = nullptr;

  // The longest that the contract lets one call take, in seconds.
  int limitSeconds = 5;

  // Runs in processes of its own, one for each fault, in which nothing has been initialised.
  bool fresh = false;

  // Speaks to the server with TLS alone.
  bool needsTls = false;
};

// Every operation that can be called over such a connection, and what settings make of some.
std::vector<Subject> Subjects(Connection connection);

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_SUBJECT_H
