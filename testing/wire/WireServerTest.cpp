// The wire server over plain TCP and over TLS: what it records, and what each step of a script
// does.

#include "wire/WireServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <stdexcept>

#include "support/Files.h"
#include "support/Threads.h"
#include "tls/TlsMaterial.h"
#include "wire/Ports.h"
#include "wire/Socket.h"
#include "wire/WireClient.h"

namespace lumtest {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const char kGet[] = "GET /a?b=c d HTTP/1.1\r\nHost: x\r\nX-Auth-Token: \r\nx-two:  v \r\n\r\n";
const char kBegun[] = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc";

std::string Post(const std::string& body) {
  return "POST /p HTTP/1.1\r\nHost: x\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

const TlsMaterial& Made() {
  static const TempDir directory;
  static const TlsMaterial made = lumtools::MakeTlsMaterial(directory.Path(), "pass phrase");
  return made;
}

class WireServerTest : public ::testing::TestWithParam<bool> {
 protected:
  static WireOptions Options() {
    WireOptions options;
    if (GetParam()) {
      options.tls = MakeWireTls(Made());
    }
    return options;
  }

  // A client that has sent `bytes`.
  std::unique_ptr<WireClient> Send(const std::string& bytes) const {
    auto client = std::make_unique<WireClient>("127.0.0.1", server.Port());
    if (GetParam()) {
      client->StartTls();
    }
    EXPECT_TRUE(client->Send(bytes));
    return client;
  }

  // One connection's worth of bytes sent and everything that came back.
  std::string Exchange(const std::string& bytes) const {
    const auto client = Send(bytes);
    client->HalfClose();
    return client->ReadAll();
  }

  WireServer server{Options()};
};

INSTANTIATE_TEST_SUITE_P(, WireServerTest, ::testing::Bool(),
                         [](const auto& each) { return each.param ? "OverTls" : "OverTcp"; });

TEST_P(WireServerTest, KeepsTheRawBytesAndTheirParts) {
  server.Script(StatusReply(200));
  EXPECT_EQ(Exchange(kGet), "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
  const WireRequest request = server.Request(0);
  EXPECT_EQ(request.state, WireState::kComplete);
  EXPECT_EQ(request.Raw(), kGet);
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.target, "/a?b=c d");
  EXPECT_THAT(request.headerLines, ElementsAre("Host: x", "X-Auth-Token: ", "x-two:  v "));
  EXPECT_EQ(request.Header("X-Two"), "v");
  EXPECT_TRUE(request.HasHeader("x-auth-token"));
  EXPECT_EQ(request.Header("X-Auth-Token"), "");
  EXPECT_FALSE(request.HasHeader("X-Auth"));
  EXPECT_EQ(request.tls, GetParam());
  EXPECT_EQ(request.clientSubject, "");
}

TEST_P(WireServerTest, PlaysScriptsInTheOrderOfRequestsAndThenAsksTheHandler) {
  server.SetHandler([](const WireRequest& request) { return StatusReply(200, request.body); });
  server.Script(StatusReply(404, "one")).Script(StatusReply(302, "", {"Location: /z"}));
  EXPECT_EQ(Exchange(kGet + Post("body")),  // two at once
            "HTTP/1.1 404 Status\r\nContent-Length: 3\r\n\r\none"
            "HTTP/1.1 302 Status\r\nLocation: /z\r\nContent-Length: 0\r\n\r\n");
  EXPECT_EQ(server.Request(1).body, "body");
  EXPECT_EQ(server.Connections().size(), 1u);
  EXPECT_THAT(Exchange(Post("handled")), HasSubstr("\r\n\r\nhandled"));
}

TEST_P(WireServerTest, SaysSoWhenNoAnswerIsLeft) {
  EXPECT_THAT(Exchange(kGet), StartsWith("HTTP/1.1 501 "));
}

TEST_P(WireServerTest, TellsRequestsThatEndEarly) {
  Exchange("GET / HT");
  Exchange("POST / HTTP/1.1\r\nContent-Length: 9\r\n\r\nabc");
  EXPECT_EQ(Exchange("POST / HTTP/1.1\r\nContent-Length: x\r\n\r\n"), "");
  EXPECT_EQ(Exchange("PUT / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\n"), "");
  ASSERT_TRUE(server.WaitForRequests(4));
  for (const WireRequest& request : server.Requests()) {
    EXPECT_EQ(request.state, WireState::kAborted) << request.head;
  }
  EXPECT_EQ(server.Request(0).head, "GET / HT");
  EXPECT_EQ(server.Request(1).body, "abc");
}

TEST_P(WireServerTest, HoldsAnAnswerUntilTheGateOpens) {
  WireGate gate;
  EXPECT_FALSE(gate.WaitReached(milliseconds(1)));
  server.Script(WireReply("HTTP/1.1 200 OK\r\n").Wait(gate).Send("Content-Length: 0\r\n\r\n"));
  const auto client = Send(kGet);
  ASSERT_TRUE(gate.WaitReached());
  EXPECT_EQ(client->ReadUntil("\r\n"), "HTTP/1.1 200 OK\r\n");
  EXPECT_FALSE(server.WaitIdle(milliseconds(1)));
  gate.Release();
  EXPECT_EQ(client->ReadUntil("\r\n\r\n"), "Content-Length: 0\r\n\r\n");
}

TEST_P(WireServerTest, ReadsNoMoreThanItIsTold) {
  // The head has 38 bytes, the body 5.
  for (const std::uint64_t count : {1, 7, 37, 38, 42}) {
    server.Script(WireReply().AtBytes(count).Reset());
    const auto client = Send("POST / HTTP/1.1\r\nContent-Length: 5\r\n\r\nabcde");
    EXPECT_EQ(client->ReadAll(), "");
    EXPECT_TRUE(client->WasReset());
    ASSERT_TRUE(server.WaitIdle());
    EXPECT_EQ(server.Connections().back().bytesReceived, count);
    EXPECT_EQ(server.Connections().back().end, WireEnd::kByServer);
    EXPECT_EQ(server.Requests().back().state, WireState::kAborted);
    EXPECT_EQ(server.Requests().back().Raw().size(), count);
  }
  EXPECT_EQ(server.RequestCount(), 5u);
}

TEST_P(WireServerTest, AConnectionScriptLeavesRequestsToTheNextOne) {
  WireGate gate;
  server.Script(WireReply().AtBytes(0).Wait(gate)).Script(StatusReply(200, "ok"));
  const auto client = Send(kGet);
  ASSERT_TRUE(gate.WaitReached());
  EXPECT_EQ(server.RequestCount(), 0u);
  gate.Release();
  EXPECT_THAT(client->ReadUntil("ok"), StartsWith("HTTP/1.1 200"));
}

TEST_P(WireServerTest, AConnectionScriptMayReadItself) {
  server.Script(WireReply().At(WireStart::kHandshake).ReadBytes(3).Send("x").ReadBody().Send("y"));
  server.Script(StatusReply(200, "second"));
  const auto client = Send("GET");
  EXPECT_EQ(client->ReadBytes(1), "x");
  ASSERT_TRUE(client->Send(" / HTTP/1.1\r\n\r\n"));
  EXPECT_EQ(client->ReadBytes(1), "y");
  ASSERT_TRUE(client->Send(kGet));
  EXPECT_THAT(client->ReadUntil("second"), StartsWith("HTTP/1.1 200"));
  EXPECT_EQ(server.Request(0).head, "GET / HTTP/1.1\r\n\r\n");
}

TEST_P(WireServerTest, EndsInEveryWay) {
  server.Script(WireReply(kBegun).Close());
  server.Script(WireReply(kBegun).Drop());
  server.Script(WireReply(kBegun).Reset());
  for (const char* end : {"close", "drop", "reset"}) {
    const auto client = Send(kGet);
    EXPECT_EQ(client->ReadAll(), kBegun) << end;
    EXPECT_EQ(client->SawTlsClose(), GetParam() && std::string(end) == "close") << end;
    EXPECT_EQ(client->WasReset(), std::string(end) == "reset");
  }
}

TEST_P(WireServerTest, AnswersBeforeTheBodyIsRead) {
  server.SetHandler([](const WireRequest&) { return StatusReply(413).Close(); }, WireStart::kHead);
  const auto client = Send("POST / HTTP/1.1\r\nContent-Length: 50000000\r\n\r\n");
  EXPECT_EQ(client->ReadAll(), "HTTP/1.1 413 Status\r\nContent-Length: 0\r\n\r\n");
  // The server drops what still comes, so that sending goes on without a reset.
  EXPECT_TRUE(client->Send(std::string(3000000, 'x')));
  EXPECT_FALSE(client->WasReset());
}

TEST_P(WireServerTest, AnEarlyAnswerMayStillTakeTheBody) {
  server.Script(StatusReply(200, "early").At(WireStart::kHead)).Script(StatusReply(200, "next"));
  const auto client = Send("POST / HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 4\r\n\r\n");
  EXPECT_THAT(client->ReadUntil("early"), StartsWith("HTTP/1.1 200"));
  ASSERT_TRUE(client->Send("body" + std::string(kGet)));
  EXPECT_THAT(client->ReadUntil("next"), StartsWith("HTTP/1.1 200"));
  EXPECT_EQ(server.Request(0).body, "body");
}

TEST_P(WireServerTest, StopsWithConnectionsInEveryState) {
  WireGate gate;
  server.Script(WireReply().Stall());
  server.Script(StatusReply(200).Wait(gate));
  server.Script(WireReply().Pause(std::chrono::hours(1)));
  server.Script(WireReply(std::string(100 << 20, 'x')));
  server.Script(StatusReply(200).Close());
  std::vector<std::unique_ptr<WireClient>> clients;
  for (std::size_t i = 1; i <= 5; ++i) {
    clients.push_back(Send(kGet));
    ASSERT_TRUE(server.WaitForRequests(i));
  }
  ASSERT_TRUE(gate.WaitReached());
  clients.push_back(Send("POST / HTTP/1.1\r\nContent-Length: 9\r\n\r\n"));
  clients.push_back(Send("GET"));
  clients.push_back(std::make_unique<WireClient>("127.0.0.1", server.Port()));
  server.Stop();
  server.Stop();
  EXPECT_TRUE(server.WaitIdle(milliseconds(0)));
  EXPECT_THROW(WireClient("127.0.0.1", server.Port()), std::runtime_error);
}

TEST_P(WireServerTest, DripsAndPauses) {
  server.Script(
      WireReply().Drip("ab", 3, milliseconds(1)).Pause(milliseconds(1)).Send("c").Close());
  EXPECT_EQ(Send(kGet)->ReadAll(), "abababc");
}

TEST_P(WireServerTest, ServesManyClientsAtOnceAndForgetsThem) {
  server.SetHandler([](const WireRequest& request) { return StatusReply(200, request.body); });
  OnThreads(8, [this](int t) {
    for (int i = 0; i < 10; ++i) {
      const std::string body = "client " + std::to_string(t) + " request " + std::to_string(i);
      EXPECT_EQ(Exchange(Post(body)), WireAnswer(200, body));
    }
  });
  EXPECT_EQ(server.Requests().size(), 80u);
  ASSERT_TRUE(server.WaitIdle());
  server.Forget();
  EXPECT_THAT(server.Requests(), IsEmpty());
  EXPECT_THAT(server.Connections(), IsEmpty());
  EXPECT_EQ(server.RequestCount(), 80u);
  EXPECT_TRUE(server.WaitForRequests(80));
  EXPECT_THROW(server.Request(0), std::out_of_range);
  Exchange(kGet);
  EXPECT_EQ(server.Request(80).method, "GET");
}

TEST_P(WireServerTest, TellsItsThreadsNothingOfSignals) {
  // A server that took the signal on one of its threads would end the process here.
  sigset_t set;
  sigset_t before;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR1);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &set, &before), 0);
  ASSERT_EQ(kill(getpid(), SIGUSR1), 0);
  EXPECT_THAT(Send(kGet)->ReadUntil("\r\n"), StartsWith("HTTP/1.1 501"));
  int signal = 0;
  ASSERT_EQ(sigwait(&set, &signal), 0);
  EXPECT_EQ(signal, SIGUSR1);
  ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
}

TEST(WireServer, CountsAndHashesWhatItDoesNotKeep) {
  WireOptions options;
  options.keptBodyBytes = 2;
  WireServer server(options);
  server.Script(StatusReply(200));
  WireClient client("127.0.0.1", server.Port());
  ASSERT_TRUE(client.Send(Post("abc")));
  client.ReadUntil("\r\n\r\n");
  EXPECT_EQ(server.Request(0).body, "ab");
  EXPECT_EQ(server.Request(0).bodyBytes, 3u);
  EXPECT_EQ(server.Request(0).bodySha256,
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(WireServer, RefusesTlsMaterialThatDoesNotFit) {
  WireOptions options;
  options.tls = MakeWireTls(Made());
  options.tls->key = Made().clientKey;
  EXPECT_THROW(WireServer{options}, std::runtime_error);
  options.tls = MakeWireTls(Made(), WireTls::ClientCertificate::kRequired);
  options.tls->clientCa = "/nowhere.pem";
  try {
    const WireServer server(options);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("/nowhere.pem"));
  }
}

TEST(SilentPort, NeitherAcceptsNorRefuses) {
  const SilentPort port;
  const SocketAddress address("127.0.0.1", port.Port());
  const FileDescriptor client(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  EXPECT_EQ(connect(client.Get(), address.Get(), address.length), -1);
  EXPECT_EQ(errno, EINPROGRESS);
  pollfd waiting = {client.Get(), POLLOUT, 0};
  EXPECT_EQ(poll(&waiting, 1, 100), 0);
}

TEST(GeneratedBytes, AreAPatternWithAPrimePeriod) {
  EXPECT_EQ(GeneratedBytes(250, 3), std::string("\xfa\0\x01", 3));
  EXPECT_EQ(GeneratedBytes(0, 1000).substr(700), GeneratedBytes(700, 300));
}

}  // namespace
}  // namespace lumtest
