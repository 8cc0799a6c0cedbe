// Every operation ends at its time limit whatever keeps it waiting.

#include "LimitFaults.h"

#include <gtest/gtest.h>

#include "../http/LiveTest.h"
#include "support/ProcessState.h"

namespace lumtest {
namespace {

TEST(LimitFaultTest, NothingThatNeverEndsHoldsAnOperationBeyondItsLimit) {
  const NeverEnding servers;
  RunAtOnce(servers.Meet(
      OperationsWhere([](const Operation& operation) { return !operation.Is60Seconds(); })));
}

// Those with limits of a minute, which all wait at the same time.
TEST(LongLimitFaultTest, NothingThatNeverEndsHoldsAnOperationBeyondItsLimit) {
  const NeverEnding servers;
  RunAtOnce(servers.Meet(
      OperationsWhere([](const Operation& operation) { return operation.Is60Seconds(); })));
}

// A server that takes a part of a large file and then reads no more.
TEST(LimitFaultTest, AnUploadThatGetsStuckEndsAtItsLimit) {
  WireOptions options;
  options.receiveBuffer = 16384;
  const std::size_t before = OpenDescriptors();
  auto server = std::make_unique<WireServer>(options);
  server->SetHandler(
      [](const WireRequest&) { return WireReply(WireContinue()).ReadBytes(100000).Stall(); },
      WireStart::kHead);
  std::vector<Encounter> stuck;
  for (const Operation& operation : OperationsWhere(
           [](const Operation& each) { return each.Uploads() && !each.Is60Seconds(); })) {
    stuck.push_back({"reads a part",
                     operation,
                     server->Url("/x"),
                     operation.limit,
                     {{28, 100, "", "Operation timed out after [0-9]+ milliseconds with .*"}},
                     -1,
                     std::string(16 << 20, 'x')});
  }
  RunAtOnce(stuck, false);  // the end of a connection stands behind what the server does not read
  server.reset();
  EXPECT_EQ(OpenDescriptors(), before) << ::testing::PrintToString(DescribeDescriptors());
}

}  // namespace
}  // namespace lumtest
