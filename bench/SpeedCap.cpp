// How close an upload keeps to the speed it is limited to: some seconds for each of several rates,
// as the rate reached over the rate set. Exits 0 when each is within 10 %.

#include <LumCurlOrvOps.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>

#include "support/CaptureFd.h"
#include "support/Files.h"
#include "wire/WireServer.h"

int main() {
  constexpr int kSeconds = 5;
  constexpr double kTolerance = 0.1;
  lumtest::TempDir directory;
  const std::string file = directory.Path("upload");
  LumCurlOrvOps service;
  service.CurlGlobalInit();
  bool within = true;
  std::printf("%12s %12s %8s\n", "set, B/s", "reached", "ratio");
  for (const int rate : {200000, 1000000, 5000000, 20000000}) {
    lumtest::WireServer server;
    server.Script(lumtest::JsonReply("{}"));
    lumtest::MakeSparseFile(file, static_cast<std::uint64_t>(rate) * kSeconds);
    service.SetLimitSpeed(rate);
    lumtest::CaptureStdout reply;  // an upload's reply goes to standard output
    const auto start = std::chrono::steady_clock::now();
    const int result = service.UploadLog(server.Url("/upload"), file, 4 * kSeconds);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    reply.Stop();
    const double reached = static_cast<double>(rate) * kSeconds / taken.count();
    std::printf("%12d %12.0f %8.3f%s\n", rate, reached, reached / rate,
                result == 0 ? "" : "  the upload failed");
    within = within && result == 0 && std::abs(reached / rate - 1) <= kTolerance;
  }
  return within ? 0 : 1;
}
