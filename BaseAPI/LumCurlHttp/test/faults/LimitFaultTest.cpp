// Every operation ends at its time limit whatever keeps it waiting.

#include "LimitFaults.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>

#include "../http/LiveTest.h"
#include "support/ProcessState.h"
#include "wire/Ports.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

using std::chrono::milliseconds;

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

// A server, with and without TLS, that never comes to an end.
struct NeverEnding {
  NeverEnding(const char* called, const WireReply& script, long lastStatus, bool isBody = false)
      : name(called), reply(script), status(lastStatus), body(isBody) {
    for (WireServer* server : {plain.get(), tls.get()}) {
      if (reply.Start() != WireStart::kHandshake) {
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

std::vector<NeverEnding> NeverEndings() {
  std::vector<NeverEnding> all;
  const std::string blanks(10, ' ');
  const std::string statusLine = "HTTP/1.1 200 OK\r\n";
  all.emplace_back("reads and never answers", WireReply().Stall(), NeverEnding::kNone);
  all.emplace_back("accepts and is silent", WireReply().At(WireStart::kHandshake).Stall(), 0);
  all.emplace_back("drips a status line", Dripping("HTTP/1.1 200 ", "O"), NeverEnding::kNone);
  all.emplace_back("drips a header line", Dripping(statusLine + "X: ", "x"), 200);
  all.emplace_back("sends headers for ever", Dripping(statusLine, "X: 1\r\n"), 200);
  all.emplace_back("sends interim answers for ever",
                   Dripping("", "HTTP/1.1 102 Processing\r\n\r\n"), 102);
  all.emplace_back("drips a body", Dripping(WireHead(200, {"Content-Length: 1000000"}), blanks),
                   200, true);
  all.emplace_back("announces more than it sends",
                   WireReply(WireHead(200, {"Content-Length: 100"}) + blanks).Stall(), 200, true);
  all.emplace_back(
      "sends chunks for ever",
      Dripping(WireHead(200, {"Transfer-Encoding: chunked"}), WireChunk(std::string(1000, ' '))),
      200, true);
  all.emplace_back("announces nothing and goes on sending", Dripping(WireHead(200), blanks), 200,
                   true);
  return all;
}

// Nothing that never ends holds one of these beyond its limit.
void ExpectToEnd(const std::vector<Operation>& operations) {
  const std::vector<NeverEnding> servers = NeverEndings();
  const SilentPort silent;  // nobody gets through to it
  WireServer handshake;     // accepts, but there is no TLS
  for (std::size_t i = 0; i < operations.size(); ++i) {
    handshake.Script(WireReply().At(WireStart::kHandshake).Stall());
  }
  std::vector<Encounter> all;
  for (const Operation& operation : operations) {
    const bool apollo = operation.NeedsTls();
    const double connect = std::min(operation.connectLimit, operation.limit);
    for (const NeverEnding& fault : servers) {
      const std::string received = fault.body ? Ending::kBlanks : "";
      std::vector<Ending> endings = {{kTimedOut, fault.status, received, kTransferLimit}};
      if (fault.status == NeverEnding::kNone) {
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
                   silent.Url(apollo ? "https" : "http", "/x"),
                   connect,
                   {{kTimedOut, 0, "", kConnectLimit}}});
    all.push_back({"never shakes hands",
                   operation,
                   "https" + handshake.Url("/x").substr(4),
                   connect,
                   {{kTimedOut, 0, "", kConnectLimit}}});
  }
  RunAtOnce(all);
}

TEST(LimitFaultTest, NothingThatNeverEndsHoldsAnOperationBeyondItsLimit) {
  ExpectToEnd(OperationsWhere([](const Operation& operation) { return !operation.Is60Seconds(); }));
}

// Those with limits of a minute, which all wait at the same time.
TEST(LongLimitFaultTest, NothingThatNeverEndsHoldsAnOperationBeyondItsLimit) {
  ExpectToEnd(OperationsWhere([](const Operation& operation) { return operation.Is60Seconds(); }));
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
