// The public operations as the torture sees them: how each is called, the roads it can take, and
// the results with which it may answer a fault.

#ifndef LUM_TEST_TORTURE_OPERATION_H
#define LUM_TEST_TORTURE_OPERATION_H

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

struct Operation {
  std::string name;

  // Calls it once, by World::Try, and tells the result as text.
  std::function<std::string(World&)> run;

  std::vector<Road> roads = {Road::kNone};
  std::vector<StatedFailure> failures = {};

  // Comes before each run: what a call uses up.
  std::function<void(World&)> prepare = nullptr;

  // The longest that the contract lets one call take, in seconds.
  int limitSeconds = 5;

  // Runs in processes of its own, one for each fault, in which nothing has been initialised.
  bool fresh = false;
};

std::vector<Operation> GeneralOperations(Connection connection);
std::vector<Operation> ServiceOperations(Connection connection);
std::vector<Operation> ConfigurationOperations(Connection connection);

}  // namespace lumtest

#endif  // LUM_TEST_TORTURE_OPERATION_H
