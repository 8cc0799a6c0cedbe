// A great many requests of every operation, one after the other, against a server in a process of
// its own: descriptors and memory of this process must stay what they were.
//
//   LumSoakBench [REQUESTS]      100,000 by default
//
// Exits 0 when every request succeeded, descriptors are those of the beginning at every quarter,
// and resident memory has grown by no more than kAllowance and what is kept on purpose.

#include <LumCurlHttp.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "../BaseAPI/LumCurlHttp/test/operations/RunOperation.h"
#include "support/Files.h"
#include "support/Process.h"
#include "support/ProcessState.h"
#include "tls/TlsMaterial.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

constexpr long kRequests = 100000;

// Requests before the first measurement: libraries have then allocated what they keep.
constexpr long kWarmUp = 2000;

// The clients are made anew after so many requests.
constexpr long kRequestsOfACaller = 1000;

// Bytes that resident memory may grow by: the heap's own unevenness.
constexpr std::size_t kAllowance = 1 << 20;

// LumApollo keeps the header list of each request on purpose: two nodes with two lines, in bytes as
// glibc's heap rounds them up.
constexpr std::size_t kKeptByApollo = 2 * 32 + 48 + 32;

const char kAnswer[] = "{\"token\":\"t\"}";

// Runs in the child: prints the ports of a server without TLS and of one with it, and serves until
// it is killed.
int Serve(const TempDir& directory) {
  WireOptions options;
  WireServer plain(options);
  options.tls = MakeWireTls(lumtools::MakeTlsMaterial(directory.Path("tls"), "pass phrase"));
  WireServer secure(options);
  for (WireServer* server : {&plain, &secure}) {
    // What answers an upload goes to standard output.
    server->SetHandler([](const WireRequest& request) {
      return StatusReply(200, request.HasHeader("Expect") ? "" : kAnswer);
    });
  }
  std::printf("%d %d\n", plain.Port(), secure.Port());
  std::fflush(stdout);
  while (true) {
    usleep(100000);
    plain.Forget();
    secure.Forget();
  }
}

std::string Url(const std::string& scheme, const std::string& port) {
  return scheme + "://127.0.0.1:" + port + "/x";
}

class Soak {
 public:
  Soak(const std::string& port, const std::string& tlsPort)
      : m_plain(Url("http", port)), m_secure(Url("https", tlsPort)) {}

  // Sends `count` requests; false as soon as one fails.
  bool Send(long count) {
    for (long i = 0; i < count; ++i, ++m_sent) {
      if (m_sent % kRequestsOfACaller == 0) {
        m_caller = std::make_unique<Caller>();
      }
      const Operation& operation =
          Operations()[static_cast<std::size_t>(m_sent) % Operations().size()];
      const bool apollo = operation.NeedsTls();
      const std::string& url = apollo ? m_secure : m_plain;
      m_apolloRequests += apollo ? 1 : 0;
      ExpectEnding(operation, url, RunOperation(*m_caller, operation, url),
                   {{0, 200, operation.Uploads() ? "" : kAnswer}});
      if (::testing::Test::HasFailure()) {
        return false;
      }
    }
    return true;
  }

  std::size_t ApolloRequests() const { return m_apolloRequests; }

 private:
  const ThreadLogs m_logs;
  const std::string m_plain;
  const std::string m_secure;
  std::unique_ptr<Caller> m_caller;
  long m_sent = 0;
  std::size_t m_apolloRequests = 0;
};

int Run(long requests) {
  const TempDir directory;
  SpawnedProcess server([&directory] { return Serve(directory); });
  std::vector<std::string> ports;
  if (LumCurlHttp::CurlGlobalInit() != 0 || !server.WaitForLine("^([0-9]+) ([0-9]+)$", &ports)) {
    return 1;
  }
  Soak soak(ports[1], ports[2]);
  if (!soak.Send(kWarmUp)) {
    return 1;
  }
  const std::size_t descriptors = OpenDescriptors();
  const std::size_t resident = ResidentBytes();
  const std::size_t apolloBefore = soak.ApolloRequests();
  const auto start = std::chrono::steady_clock::now();
  bool flat = true;
  std::printf("%9s %9s %12s %14s %14s\n", "requests", "seconds", "descriptors", "resident, KiB",
              "allowed, KiB");
  long sent = 0;
  for (int quarter = 0; quarter <= 4; ++quarter) {
    const long due = requests * quarter / 4;
    if (!soak.Send(due - sent)) {
      return 1;
    }
    sent = due;
    const std::size_t allowed =
        resident + kAllowance + (soak.ApolloRequests() - apolloBefore) * kKeptByApollo;
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    std::printf("%9ld %9.1f %12zu %14zu %14zu\n", sent, taken.count(), OpenDescriptors(),
                ResidentBytes() / 1024, allowed / 1024);
    std::fflush(stdout);
    flat = flat && OpenDescriptors() == descriptors && ResidentBytes() <= allowed;
  }
  std::printf(
      "%s: %zu of the requests were LumApollo's, which keeps %zu bytes of each on purpose\n",
      flat ? "flat" : "NOT FLAT", soak.ApolloRequests() - apolloBefore, kKeptByApollo);
  return flat ? 0 : 1;
}

}  // namespace
}  // namespace lumtest

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  const long requests = argc > 1 ? std::atol(argv[1]) : lumtest::kRequests;
  if (requests < 4) {
    std::fprintf(stderr, "usage: %s [REQUESTS]\n", argv[0]);
    return 2;
  }
  return lumtest::Run(requests);
}
