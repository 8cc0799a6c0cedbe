// Every operation ends at its time limit whatever keeps it waiting: those with limits of a minute,
// which all wait at the same time.

#include <gtest/gtest.h>

#include "../http/LiveTest.h"
#include "LimitFaults.h"

namespace lumtest {
namespace {

TEST(LongLimitFaultTest, NothingThatNeverEndsHoldsAnOperationBeyondItsLimit) {
  const NeverEnding servers;
  RunAtOnce(servers.Meet(
      OperationsWhere([](const Operation& operation) { return operation.Is60Seconds(); })));
}

}  // namespace
}  // namespace lumtest
