// The servers, and the clock that all encounters are held against.

#include "LimitFaults.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "../http/LiveTest.h"
#include "support/ProcessState.h"

namespace lumtest {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kTimedOut = 28;
constexpr char kTransferLimit[] =
    "Operation timed out after [0-9]+ milliseconds with .* bytes received";
constexpr char kConnectLimit[] =
    "(Connection timeout|SSL connection timeout|Connection timed out|Failed to connect to "
    "127.0.0.1( port |:)[0-9]+)( after [0-9]+ (ms|milliseconds))?(: Timeout was reached)?";

// A drip goes on for longer than the longest limit, and what an operation may take beyond its own.
constexpr milliseconds kPause{50};
constexpr int kPieces = 80000 / 50;

// Sends `start` at once and `piece` again and again.
WireReply Dripping(const std::string& start, const std::string& piece) {
  return WireReply(start).Drip(piece, kPieces, kPause);
}

}  // namespace

void RunAtOnce(const std::vector<Encounter>& encounters, bool serversNotice) {
  const ThreadLogs logs;
  std::vector<Outcome> outcomes(encounters.size());
  const std::size_t before = OpenDescriptors();
  CaptureStdout output;
  {
    std::atomic<std::size_t> ready{0};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < encounters.size(); ++i) {
      threads.emplace_back([&, i] {
        const Encounter& met = encounters[i];
        Caller caller;
        if (!met.content.empty()) {
          caller.content = met.content;
        }
        caller.MakeFiles(met.operation.name);
        for (++ready; ready < encounters.size();) {
          std::this_thread::sleep_for(milliseconds(1));
        }
        outcomes[i] = RunOperation(caller, met.operation, met.url);
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
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

struct NeverEnding::Fault {
  Fault(const char* called, const WireReply& script, long lastStatus, bool isBody = false)
      : name(called), reply(script), status(lastStatus), body(isBody) {
    for (WireServer* server : {plain.get(), tls.get()}) {
      if (reply.Start() > WireStart::kHandshake) {
        server->SetHandler([script = reply](const WireRequest&) { return script; });
      } else {
        for (std::size_t i = 0; i < 2 * Operations().size(); ++i) {
          server->Script(reply);
        }
      }
    }
  }

  const char* name;
  WireReply reply;
  long status;  // that arrives; kNone for none
  bool body;    // blanks arrive
  std::unique_ptr<WireServer> plain = std::make_unique<WireServer>();
  std::unique_ptr<WireServer> tls = std::make_unique<WireServer>(TlsOptions());

  static constexpr long kNone = -1;
};

NeverEnding::~NeverEnding() = default;

NeverEnding::NeverEnding() : m_handshake(std::make_unique<WireServer>()) {
  for (std::size_t i = 0; i < Operations().size(); ++i) {
    m_handshake->Script(WireReply().At(WireStart::kAccept).Stall());
  }
  const std::string blanks(10, ' ');
  const std::string statusLine = "HTTP/1.1 200 OK\r\n";
  m_faults.emplace_back("reads and never answers", WireReply().Stall(), Fault::kNone);
  m_faults.emplace_back("accepts and is silent", WireReply().At(WireStart::kHandshake).Stall(), 0);
  m_faults.emplace_back("drips a status line", Dripping("HTTP/1.1 200 ", "O"), Fault::kNone);
  m_faults.emplace_back("drips a header line", Dripping(statusLine + "X: ", "x"), 200);
  m_faults.emplace_back("sends headers for ever", Dripping(statusLine, "X: 1\r\n"), 200);
  m_faults.emplace_back("sends interim answers for ever",
                        Dripping("", "HTTP/1.1 102 Processing\r\n\r\n"), 102);
  m_faults.emplace_back("drips a body",
                        Dripping(WireHead(200, {"Content-Length: 1000000"}), blanks), 200, true);
  m_faults.emplace_back("announces more than it sends",
                        WireReply(WireHead(200, {"Content-Length: 100"}) + blanks).Stall(), 200,
                        true);
  m_faults.emplace_back(
      "sends chunks for ever",
      Dripping(WireHead(200, {"Transfer-Encoding: chunked"}), WireChunk(std::string(1000, ' '))),
      200, true);
  m_faults.emplace_back("announces nothing and goes on sending", Dripping(WireHead(200), blanks),
                        200, true);
}

std::vector<Encounter> NeverEnding::Meet(const std::vector<Operation>& operations) const {
  std::vector<Encounter> all;
  for (const Operation& operation : operations) {
    const bool apollo = operation.NeedsTls();
    const double connect = std::min(operation.connectLimit, operation.limit);
    for (const Fault& fault : m_faults) {
      const std::string received = fault.body ? Ending::kBlanks : "";
      std::vector<Ending> endings = {{kTimedOut, fault.status, received, kTransferLimit}};
      if (fault.status == Fault::kNone) {
        endings[0].status = 0;
        if (operation.Uploads()) {
          endings.push_back({kTimedOut, 100, received, kTransferLimit});
        }
      }
      all.push_back({fault.name, operation, (apollo ? fault.tls : fault.plain)->Url("/x"),
                     operation.limit, endings});
    }
    all.push_back({"never lets anybody connect",
                   operation,
                   m_silent.Url(apollo ? "https" : "http", "/x"),
                   connect,
                   {{kTimedOut, 0, "", kConnectLimit}}});
    all.push_back({"never shakes hands",
                   operation,
                   "https" + m_handshake->Url("/x").substr(4),
                   connect,
                   {{kTimedOut, 0, "", kConnectLimit}}});
  }
  return all;
}

}  // namespace lumtest
