// LumTorture: every public operation under every fault in turn, and the table of what came of it.
//
//   LumTorture http|answer|https|refused|certificate [PART-OF-A-NAME]
//   LumTorture calls|tls-calls                       [PART-OF-A-NAME]
//
// The first five fail each allocation: over plain HTTP, the same where the server answers 200
// alone, over TLS, the same where nobody listens, and over TLS with a client certificate and its
// encrypted key. The other two fail each file and socket call with each of its usual errors: over
// plain HTTP, and over TLS.
// PART-OF-A-NAME chooses among the operations.

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "FailingCall.h"
#include "FailingMalloc.h"
#include "Subject.h"
#include "Trial.h"

namespace lumtest {
namespace {

// With TLS, the scenarios that differ within the connection; a certificate is at work before them
// all.
bool IsTaken(Connection connection, Scenario scenario) {
  switch (connection) {
    case Connection::kPlain:
      return true;
    case Connection::kTls:
      return scenario != Scenario::kError && scenario != Scenario::kNotJson;
    case Connection::kCertificate:
      return scenario == Scenario::kAnswer;
  }
  return false;
}

std::vector<Trial> Trials(Connection connection, Faults (*faults)(),
                          std::optional<Scenario> scenarioAlone, const std::string& part) {
  std::vector<Trial> trials;
  for (const Subject& subject : Subjects(connection)) {
    if (subject.name.find(part) == std::string::npos) {
      continue;
    }
    for (const Scenario scenario : subject.scenarios) {
      if (scenarioAlone ? scenario == *scenarioAlone : IsTaken(connection, scenario)) {
        trials.push_back({subject, connection, scenario, faults});
      }
    }
  }
  return trials;
}

void Print(const std::string& name, const std::string& scenario, const Result& result) {
  std::printf("| %s | %s | %zu | %zu | %zu | %zu | %zu | %zu |\n", name.c_str(), scenario.c_str(),
              result.Tried(), result.same, result.failed, result.threw, result.excused, result.bad);
}

// Whether all is well.
bool Torture(const std::vector<Trial>& trials, std::size_t atOnce) {
  const std::vector<Result> results = RunAll(trials, atOnce, STDERR_FILENO);
  std::puts("| operation | server | tried | as usual | failure | bad_alloc | excused | bad |");
  std::puts("|---|---|--:|--:|--:|--:|--:|--:|");
  Result sum;
  for (std::size_t i = 0; i < trials.size(); ++i) {
    Print(trials[i].subject.name, NameOf(trials[i].scenario), results[i]);
    sum.same += results[i].same;
    sum.failed += results[i].failed;
    sum.threw += results[i].threw;
    sum.excused += results[i].excused;
    sum.bad += results[i].bad;
  }
  Print("all", std::to_string(trials.size()), sum);
  return !trials.empty() && sum.bad == 0;
}

}  // namespace
}  // namespace lumtest

int main(int argc, char** argv) {
  using lumtest::Connection;
  const std::string what = argc > 1 ? argv[1] : "";
  const std::string part = argc > 2 ? argv[2] : "";
  struct Kind {
    Connection connection;
    lumtest::Faults (*faults)();
    std::optional<lumtest::Scenario> scenarioAlone = std::nullopt;
  };
  const std::map<std::string, Kind> kKinds = {
      {"http", {Connection::kPlain, lumtest::Allocations}},
      {"answer", {Connection::kPlain, lumtest::Allocations, lumtest::Scenario::kAnswer}},
      {"https", {Connection::kTls, lumtest::Allocations}},
      {"refused", {Connection::kTls, lumtest::Allocations, lumtest::Scenario::kRefused}},
      {"certificate", {Connection::kCertificate, lumtest::Allocations}},
#ifdef LUM_TORTURE_CALLS
      {"calls", {Connection::kPlain, lumtest::EveryCallFault}},
      {"tls-calls", {Connection::kTls, lumtest::EveryCallFault}},
#endif
  };
  const auto kind = kKinds.find(what);
  if (kind == kKinds.end()) {
    std::fputs(
        "usage: LumTorture http|answer|https|refused|certificate|calls|tls-calls "
        "[PART-OF-A-NAME]\n",
        stderr);
    return 2;
  }
  const auto [connection, faults, scenarioAlone] = kind->second;
  const std::size_t cores = std::max(1U, std::thread::hardware_concurrency());
  // An upload whose file cannot be read waits for its time limit.
  const std::size_t atOnce = faults == lumtest::Allocations ? cores : 12 * cores;
  return lumtest::Torture(lumtest::Trials(connection, faults, scenarioAlone, part), atOnce) ? 0 : 1;
}
