// The clock that all encounters are held against.

#include "LimitFaults.h"

#include <gmock/gmock.h>

#include <chrono>
#include <memory>
#include <thread>

#include "../http/LiveTest.h"
#include "support/ProcessState.h"
#include "support/Threads.h"

namespace lumtest {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kTimedOut = 28;

}  // namespace

void RunAtOnce(const std::vector<Encounter>& encounters, bool serversNotice) {
  const ThreadLogs logs;
  std::vector<Outcome> outcomes(encounters.size());
  const std::size_t before = OpenDescriptors();
  CaptureStdout output;
  {
    std::vector<std::unique_ptr<Caller>> callers;
    for (const Encounter& met : encounters) {
      callers.push_back(std::make_unique<Caller>());
      if (!met.content.empty()) {
        callers.back()->content = met.content;
      }
    }
    OnThreads(static_cast<int>(encounters.size()), [&](int thread) {
      const auto i = static_cast<std::size_t>(thread);
      outcomes[i] = RunOperation(*callers[i], encounters[i].operation, encounters[i].url);
    });
  }
  const std::string printed = output.Stop();
  EXPECT_EQ(printed.find_first_not_of(' '), std::string::npos) << printed;

  for (std::size_t i = 0; i < encounters.size(); ++i) {
    const Encounter& met = encounters[i];
    SCOPED_TRACE(met.name + ", " + met.operation.name);
    const Ending& ending = ExpectEnding(met.operation, met.url, outcomes[i], met.endings);
    if (ending.code == kTimedOut) {
      EXPECT_GE(outcomes[i].seconds, (met.earliest < 0 ? met.limit : met.earliest) - 0.05);
    }
    EXPECT_LE(outcomes[i].seconds, met.limit + kBeyondLimit);
  }
  if (!serversNotice) {
    return;
  }
  // Servers notice the end of a connection a moment later.
  const auto end = steady_clock::now() + kWireDeadline;
  while (OpenDescriptors() != before && steady_clock::now() < end) {
    std::this_thread::sleep_for(milliseconds(1));
  }
  EXPECT_EQ(OpenDescriptors(), before) << ::testing::PrintToString(DescribeDescriptors());
}

}  // namespace lumtest
