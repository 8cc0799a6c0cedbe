// Every operation ends at its time limit whatever keeps it waiting: those with limits of seconds.

#include "LimitFaults.h"

#include <gtest/gtest.h>

#include "../http/LiveTest.h"

namespace lumtest {
namespace {

TEST(LimitFaultTest, NothingThatNeverEndsHoldsAnOperationBeyondItsLimit) {
  const NeverEnding servers;
  RunAtOnce(servers.Meet(
      OperationsWhere([](const Operation& operation) { return !operation.Is60Seconds(); })));
}

}  // namespace
}  // namespace lumtest
