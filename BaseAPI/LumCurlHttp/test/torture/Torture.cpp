// LumTorture: every public operation under every fault in turn, and the table of what came of it.
//
//   LumTorture http|https|certificate [PART-OF-A-NAME]
//
// Fails each allocation of the operations: over plain HTTP, over TLS, and over TLS with a client
// certificate and its encrypted key. PART-OF-A-NAME chooses among the operations.

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "FailingMalloc.h"
#include "Operation.h"
#include "Supervisor.h"

namespace lumtest {
namespace {

Faults Allocations() {
  Faults faults;
  faults.push_back(std::make_unique<FailingMalloc>());
  return faults;
}

// With TLS, the roads that differ within the connection; a certificate is at work before them all.
bool IsTaken(Connection connection, Road road) {
  switch (connection) {
    case Connection::kPlain:
      return true;
    case Connection::kTls:
      return road != Road::kError && road != Road::kNotJson;
    case Connection::kCertificate:
      return road == Road::kAnswer;
  }
  return false;
}

std::vector<Trial> Trials(Connection connection, Faults (*faults)(), const std::string& part) {
  std::vector<Trial> trials;
  for (const auto& operations : {GeneralOperations(connection), ServiceOperations(connection),
                                 ConfigurationOperations(connection)}) {
    for (const Operation& operation : operations) {
      if (operation.name.find(part) == std::string::npos) {
        continue;
      }
      for (const Road road : operation.roads) {
        if (IsTaken(connection, road)) {
          trials.push_back({operation, connection, road, faults});
        }
      }
    }
  }
  return trials;
}

void Print(const Trial& trial, const Result& result) {
  std::printf("| `%s` | %s | %zu | %zu | %zu | %zu | %zu | %zu |\n", trial.operation.name.c_str(),
              NameOf(trial.road), result.tried, result.same, result.failed, result.threw,
              result.excused, result.bad);
}

// Whether all is well.
bool Torture(const std::vector<Trial>& trials) {
  const std::size_t cores = std::max(1U, std::thread::hardware_concurrency());
  const std::vector<Result> results = RunAll(trials, cores, stderr);
  std::puts("| operation | server | tried | as usual | failure | bad_alloc | excused | bad |");
  std::puts("|---|---|--:|--:|--:|--:|--:|--:|");
  Result sum;
  bool all = !trials.empty();
  for (std::size_t i = 0; i < trials.size(); ++i) {
    Print(trials[i], results[i]);
    sum.tried += results[i].tried;
    sum.bad += results[i].bad;
    sum.excused += results[i].excused;
  }
  std::printf("\n%zu operations and roads, %zu faults: %zu excused, %zu bad\n", trials.size(),
              sum.tried, sum.excused, sum.bad);
  return all && sum.bad == 0;
}

}  // namespace
}  // namespace lumtest

int main(int argc, char** argv) {
  using lumtest::Connection;
  const std::string what = argc > 1 ? argv[1] : "";
  const std::string part = argc > 2 ? argv[2] : "";
  const std::map<std::string, Connection> kConnections = {
      {"http", Connection::kPlain},
      {"https", Connection::kTls},
      {"certificate", Connection::kCertificate},
  };
  const auto connection = kConnections.find(what);
  if (connection == kConnections.end()) {
    std::fputs("usage: LumTorture http|https|certificate [PART-OF-A-NAME]\n", stderr);
    return 2;
  }
  return lumtest::Torture(lumtest::Trials(connection->second, lumtest::Allocations, part)) ? 0 : 1;
}
