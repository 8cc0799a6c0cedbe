// The wire server over plain TCP: what it records, and what each step of a script does.

#include "wire/WireServer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "support/Threads.h"
#include "wire/Digest.h"
#include "wire/Ports.h"
#include "wire/Socket.h"
#include "wire/WireClient.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const char kGet[] = "GET /a?b=c d HTTP/1.1\r\nHost: x\r\nX-Auth-Token: \r\nx-two:  v \r\n\r\n";

std::string Post(const std::string& body) {
  return "POST /p HTTP/1.1\r\nHost: x\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

// A client that has sent `bytes`.
struct Client : WireClient {
  Client(const WireServer& server, const std::string& bytes)
      : WireClient("127.0.0.1", server.Port()) {
    EXPECT_TRUE(Send(bytes));
  }
};

// One connection's worth of bytes sent and everything that came back.
std::string Exchange(const WireServer& server, const std::string& bytes) {
  Client client(server, bytes);
  client.HalfClose();
  return client.ReadAll();
}

TEST(WireServer, KeepsTheRawBytesAndTheirParts) {
  WireServer server;
  server.Script(StatusReply(200));
  Client client(server, kGet);
  EXPECT_EQ(client.ReadUntil("\r\n\r\n"), "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
  ASSERT_TRUE(server.WaitForRequests(1));
  const WireRequest request = server.Request(0);
  EXPECT_EQ(request.state, WireState::kComplete);
  EXPECT_EQ(request.Raw(), kGet);
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.target, "/a?b=c d");
  EXPECT_EQ(request.version, "HTTP/1.1");
  EXPECT_THAT(request.headerLines, ElementsAre("Host: x", "X-Auth-Token: ", "x-two:  v "));
  EXPECT_EQ(request.Header("X-Two"), "v");
  EXPECT_TRUE(request.HasHeader("x-auth-token"));
  EXPECT_EQ(request.Header("X-Auth-Token"), "");
  EXPECT_FALSE(request.HasHeader("X-Auth"));
  EXPECT_EQ(request.bodyBytes, 0u);
  EXPECT_EQ(request.bodySha256, Sha256Hex(""));
  EXPECT_EQ(request.peerAddress, "127.0.0.1");
  EXPECT_EQ(request.peerPort, client.LocalPort());
  EXPECT_FALSE(request.tls);
}

TEST(WireServer, PlaysScriptsInTheOrderOfRequests) {
  WireServer server;
  server.Script(JsonReply("{\"n\":1}"))
      .Script(StatusReply(404, "two"))
      .Script(StatusReply(302, "", {"Location: /z"}));
  WireClient client("127.0.0.1", server.Port());
  ASSERT_TRUE(client.Send(kGet + Post("body")));  // two at once
  EXPECT_EQ(client.ReadUntil("}"),
            "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 7\r\n\r\n"
            "{\"n\":1}");
  EXPECT_EQ(client.ReadUntil("two"), "HTTP/1.1 404 Not Found\r\nContent-Length: 3\r\n\r\ntwo");
  EXPECT_THAT(Exchange(server, kGet), HasSubstr("Location: /z\r\n"));
  ASSERT_TRUE(server.WaitForRequests(3));
  EXPECT_EQ(server.Request(1).body, "body");
  EXPECT_EQ(server.Request(1).rawBody, "body");
  EXPECT_EQ(server.Request(1).connection, 0u);
  EXPECT_EQ(server.Request(2).connection, 1u);
}

TEST(WireServer, SaysSoWhenNoAnswerIsLeft) {
  WireServer server;
  EXPECT_THAT(Exchange(server, kGet), StartsWith("HTTP/1.1 501 "));
}

TEST(WireServer, AsksTheHandlerWhenNoScriptIsLeft) {
  WireServer server;
  server.SetHandler([](const WireRequest& request) { return StatusReply(200, request.body); });
  server.Script(StatusReply(200, "script"));
  EXPECT_THAT(Exchange(server, Post("handler") + Post("handler")),
              testing::AllOf(HasSubstr("\r\n\r\nscript"), HasSubstr("\r\n\r\nhandler")));
}

TEST(WireServer, AsksAHeadHandlerBeforeTheBody) {
  WireServer server;
  server.SetHandler([](const WireRequest& request) { return StatusReply(200, request.method); },
                    WireStart::kHead);
  Client client(server, "POST / HTTP/1.1\r\nContent-Length: 3\r\n\r\n");
  EXPECT_THAT(client.ReadUntil("POST"), StartsWith("HTTP/1.1 200"));
  ASSERT_TRUE(client.Send("abc"));
  ASSERT_TRUE(server.WaitForRequests(1));
  EXPECT_EQ(server.Request(0).body, "abc");
  EXPECT_THROW(server.SetHandler(nullptr, WireStart::kAccept), std::runtime_error);
}

TEST(WireServer, TakesChunkedBodiesApart) {
  WireServer server;
  server.Script(StatusReply(200));
  const std::string raw = "3;x=y\r\nabc\r\n0a\r\n0123456789\r\n0\r\nTrailer: t\r\n\r\n";
  Exchange(server, "PUT / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n" + raw);
  ASSERT_TRUE(server.WaitForRequests(1));
  const WireRequest request = server.Request(0);
  EXPECT_EQ(request.state, WireState::kComplete);
  EXPECT_EQ(request.rawBody, raw);
  EXPECT_EQ(request.body, "abc0123456789");
  EXPECT_EQ(request.bodyBytes, 13u);
  EXPECT_EQ(request.bodySha256, Sha256Hex("abc0123456789"));
  EXPECT_THAT(request.chunkSizes, ElementsAre(3u, 10u));
}

TEST(WireServer, TellsRequestsThatEndEarly) {
  WireServer server;
  Exchange(server, "GET / HT");
  Exchange(server, "POST / HTTP/1.1\r\nContent-Length: 9\r\n\r\nabc");
  EXPECT_THAT(Exchange(server, "nonsense\r\n\r\n"), StartsWith("HTTP/1.1 400"));
  EXPECT_THAT(Exchange(server, "POST / HTTP/1.1\r\nContent-Length: x\r\n\r\n"),
              StartsWith("HTTP/1.1 400"));
  EXPECT_THAT(Exchange(server, "PUT / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\n"),
              StartsWith("HTTP/1.1 400"));
  ASSERT_TRUE(server.WaitForRequests(5));
  for (const WireRequest& request : server.Requests()) {
    EXPECT_EQ(request.state, WireState::kAborted) << request.number;
    EXPECT_NE(request.error, "") << request.number;
  }
  EXPECT_EQ(server.Request(0).head, "GET / HT");
  EXPECT_EQ(server.Request(1).body, "abc");
  EXPECT_EQ(server.Request(2).head, "nonsense\r\n\r\n");
}

TEST(WireServer, HoldsAnAnswerUntilTheGateOpens) {
  WireServer server;
  WireGate gate;
  server.Script(WireReply("HTTP/1.1 200 OK\r\n").Wait(gate).Send("Content-Length: 0\r\n\r\n"));
  Client client(server, kGet);
  ASSERT_TRUE(gate.WaitReached());
  EXPECT_EQ(client.ReadUntil("\r\n"), "HTTP/1.1 200 OK\r\n");
  gate.Release();
  EXPECT_EQ(client.ReadUntil("\r\n\r\n"), "Content-Length: 0\r\n\r\n");
}

TEST(WireServer, WaitReachedKeepsItsDeadline) {
  EXPECT_FALSE(WireGate().WaitReached(std::chrono::milliseconds(1)));
  WireServer server;
  EXPECT_FALSE(server.WaitForRequests(1, std::chrono::milliseconds(1)));
  EXPECT_FALSE(server.WaitForHeads(1, std::chrono::milliseconds(1)));
  EXPECT_FALSE(server.WaitForConnections(1, std::chrono::milliseconds(1)));
  EXPECT_TRUE(server.WaitIdle(std::chrono::milliseconds(1)));
  WireClient client("127.0.0.1", server.Port());
  ASSERT_TRUE(server.WaitForConnections(1));
  EXPECT_FALSE(server.WaitIdle(std::chrono::milliseconds(1)));
}

TEST(WireServer, ClosesBeforeReading) {
  WireServer server;
  server.Script(WireReply().At(WireStart::kAccept).Close()).Script(StatusReply(200, "next"));
  WireClient client("127.0.0.1", server.Port());
  EXPECT_EQ(client.ReadAll(), "");
  EXPECT_FALSE(client.WasReset());
  EXPECT_THAT(Exchange(server, kGet), HasSubstr("next"));
  EXPECT_EQ(server.RequestCount(), 1u);
}

TEST(WireServer, ReadsNoMoreThanItIsTold) {
  WireServer server;
  // The head has 38 bytes, the body 5.
  for (const std::uint64_t count : {1, 7, 37, 38, 42}) {
    server.Script(WireReply().AtBytes(count).Reset());
    Client client(server, "POST / HTTP/1.1\r\nContent-Length: 5\r\n\r\nabcde");
    EXPECT_EQ(client.ReadAll(), "");
    EXPECT_TRUE(client.WasReset());
    ASSERT_TRUE(server.WaitIdle());
    EXPECT_EQ(server.Connections().back().bytesReceived, count);
    EXPECT_EQ(server.Connections().back().end, WireEnd::kByServer);
    EXPECT_EQ(server.Requests().back().state, WireState::kAborted);
    EXPECT_EQ(server.Requests().back().Raw().size(), count);
  }
  EXPECT_EQ(server.RequestCount(), 5u);
}

TEST(WireServer, StartsBeforeAnyByteOfTheRequest) {
  WireServer server;
  server.Script(WireReply().AtBytes(0).Send("HTTP/1.1 200 early\r\n\r\n").Close());
  WireClient client("127.0.0.1", server.Port());
  EXPECT_EQ(client.ReadAll(), "HTTP/1.1 200 early\r\n\r\n");
}

TEST(WireServer, AConnectionScriptLeavesRequestsToTheNextOne) {
  WireServer server;
  WireGate gate;
  server.Script(WireReply().At(WireStart::kAccept).Wait(gate)).Script(StatusReply(200, "ok"));
  Client client(server, kGet);
  ASSERT_TRUE(gate.WaitReached());
  EXPECT_EQ(server.RequestCount(), 0u);
  gate.Release();
  EXPECT_THAT(client.ReadUntil("ok"), StartsWith("HTTP/1.1 200"));
}

TEST(WireServer, AConnectionScriptMayReadItself) {
  WireServer server;
  server.Script(WireReply().At(WireStart::kAccept).ReadBytes(3).Send("x").ReadBody().Send("y"));
  server.Script(StatusReply(200, "second"));
  Client client(server, "GET");
  EXPECT_EQ(client.ReadBytes(1), "x");
  ASSERT_TRUE(client.Send(" / HTTP/1.1\r\n\r\n"));
  EXPECT_EQ(client.ReadBytes(1), "y");
  ASSERT_TRUE(client.Send(kGet));
  EXPECT_THAT(client.ReadUntil("second"), StartsWith("HTTP/1.1 200"));
  EXPECT_EQ(server.Request(0).head, "GET / HTTP/1.1\r\n\r\n");
}

TEST(WireServer, ClosesAfterPartOfTheAnswer) {
  WireServer server;
  server.Script(WireReply("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc").Close());
  server.Script(WireReply("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc").Drop());
  server.Script(WireReply("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc").Reset());
  for (const bool reset : {false, false, true}) {
    Client client(server, kGet);
    EXPECT_THAT(client.ReadAll(), HasSubstr("\r\n\r\nabc"));
    EXPECT_EQ(client.WasReset(), reset);
  }
}

TEST(WireServer, AnswersBeforeTheBodyIsRead) {
  WireServer server;
  server.Script(StatusReply(413).At(WireStart::kHead).Close());
  Client client(server, "POST / HTTP/1.1\r\nContent-Length: 50000000\r\n\r\n");
  EXPECT_EQ(client.ReadAll(), "HTTP/1.1 413 Status\r\nContent-Length: 0\r\n\r\n");
  // The server drops what still comes, so that sending goes on without a reset.
  EXPECT_TRUE(client.Send(std::string(3000000, 'x')));
  EXPECT_FALSE(client.WasReset());
}

TEST(WireServer, AnEarlyAnswerMayStillTakeTheBody) {
  WireServer server;
  server.Script(StatusReply(200, "early").At(WireStart::kHead)).Script(StatusReply(200, "next"));
  Client client(server, "POST / HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 4\r\n\r\n");
  EXPECT_THAT(client.ReadUntil("early"), StartsWith("HTTP/1.1 200"));
  ASSERT_TRUE(client.Send("body" + std::string(kGet)));
  EXPECT_THAT(client.ReadUntil("next"), StartsWith("HTTP/1.1 200"));
  ASSERT_TRUE(server.WaitForRequests(2));
  EXPECT_EQ(server.Request(0).body, "body");
}

TEST(WireServer, ReadsTheBodyInSteps) {
  WireServer server;
  WireGate gate;
  server.Script(
      WireReply().At(WireStart::kHead).ReadBytes(2).Wait(gate).ReadBody().Send("done").Close());
  Client client(server, "POST / HTTP/1.1\r\nContent-Length: 4\r\n\r\n");
  ASSERT_TRUE(server.WaitForHeads(1));
  EXPECT_FALSE(gate.WaitReached(std::chrono::milliseconds(0)));
  ASSERT_TRUE(client.Send("ab"));
  ASSERT_TRUE(gate.WaitReached());
  gate.Release();
  EXPECT_EQ(server.Request(0).state, WireState::kReceiving);
  ASSERT_TRUE(client.Send("cd"));
  EXPECT_EQ(client.ReadAll(), "done");
  EXPECT_EQ(server.Request(0).body, "abcd");
}

TEST(WireServer, TellsAWaitingClientToGoOn) {
  const std::string head = "PUT / HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 2\r\n\r\n";
  WireServer server;
  server.Script(StatusReply(200)).Script(StatusReply(417).At(WireStart::kHead).Close());
  Client client(server, head);
  EXPECT_EQ(client.ReadUntil("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
  ASSERT_TRUE(client.Send("ab"));
  EXPECT_THAT(client.ReadUntil("\r\n\r\n"), StartsWith("HTTP/1.1 200 OK"));
  ASSERT_TRUE(client.Send(head));
  EXPECT_THAT(client.ReadAll(), StartsWith("HTTP/1.1 417"));
}

TEST(WireServer, LeavesAWaitingClientWaiting) {
  WireServer server;
  server.Script(StatusReply(200).NoContinue());
  Client client(server, "PUT / HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 2\r\n\r\n");
  ASSERT_TRUE(server.WaitForHeads(1));
  ASSERT_TRUE(client.Send("ab"));
  EXPECT_THAT(client.ReadUntil("\r\n\r\n"), StartsWith("HTTP/1.1 200 OK"));
}

TEST(WireServer, StallsUntilTheClientIsGone) {
  WireServer server;
  server.Script(WireReply().At(WireStart::kAccept).Stall());
  {
    Client client(server, kGet);
    ASSERT_TRUE(server.WaitForConnections(1));
  }
  ASSERT_TRUE(server.WaitIdle());
  EXPECT_EQ(server.Connections()[0].end, WireEnd::kByClient);
  EXPECT_EQ(server.Connections()[0].bytesReceived, 0u);
}

TEST(WireServer, StopsWithConnectionsInEveryState) {
  WireServer server;
  WireGate gate;
  const std::string post = "POST / HTTP/1.1\r\nContent-Length: 9\r\n\r\n";
  // The first connection has its script before others come that could take it.
  WireGate taken;
  server.Script(WireReply().At(WireStart::kAccept).Wait(taken).Stall());
  WireClient stalled("127.0.0.1", server.Port());
  ASSERT_TRUE(taken.WaitReached());
  taken.Release();
  server.Script(StatusReply(200).Wait(gate));
  server.Script(WireReply().Pause(std::chrono::hours(1)));
  server.Script(WireReply().Forever("for ever"));
  server.Script(StatusReply(200).Close());
  std::vector<std::unique_ptr<WireClient>> clients;
  for (const std::string& bytes : {std::string(kGet), std::string(kGet), std::string(kGet),
                                   std::string(kGet), post, std::string("GET")}) {
    clients.push_back(std::make_unique<WireClient>("127.0.0.1", server.Port()));
    ASSERT_TRUE(clients.back()->Send(bytes));
    ASSERT_TRUE(server.WaitForConnections(1 + clients.size()));
    // The four whole requests take the scripts, in their order, before the others are there.
    ASSERT_TRUE(server.WaitForRequests(std::min<std::size_t>(clients.size(), 4)));
  }
  clients.push_back(std::make_unique<WireClient>("127.0.0.1", server.Port()));
  ASSERT_TRUE(gate.WaitReached());
  server.Stop();
  server.Stop();
  EXPECT_TRUE(server.WaitIdle(std::chrono::milliseconds(0)));
  EXPECT_THROW(WireClient("127.0.0.1", server.Port()), std::runtime_error);
}

TEST(WireServer, SendsForEverUntilTheClientIsGone) {
  WireServer server;
  server.Script(WireReply(WireHead(200, {"Transfer-Encoding: chunked"})).Forever(WireChunk("abc")));
  Client client(server, kGet);
  EXPECT_EQ(client.ReadBytes(5000000).size(), 5000000u);
  client.Close();
  ASSERT_TRUE(server.WaitIdle());
  EXPECT_EQ(server.Connections()[0].end, WireEnd::kReset);
  EXPECT_GE(server.Connections()[0].bytesSent, 5000000u);
}

TEST(WireServer, RepeatsExactly) {
  WireServer server;
  for (const std::uint64_t times : {0, 1, 2, 100000}) {
    server.Script(WireReply().Repeat("X-A: b\r\n", times).Close());
    std::string expected;
    for (std::uint64_t i = 0; i < times; ++i) {
      expected += "X-A: b\r\n";
    }
    EXPECT_EQ(Exchange(server, kGet), expected) << times;
  }
  server.Script(WireReply().Repeat(std::string(100000, 'x'), 3).Close());
  EXPECT_EQ(Exchange(server, kGet), std::string(300000, 'x'));
  server.Script(WireReply().Forever("").Close());
  EXPECT_EQ(Exchange(server, kGet), "");
}

TEST(WireServer, SendsAGeneratedBody) {
  for (const std::uint64_t size : {0, 1, 251, 65535, 65536, 3000001}) {
    WireServer server;
    server.Script(GeneratedReply(size).Close());
    Client client(server, kGet);
    EXPECT_THAT(client.ReadUntil("\r\n\r\n"),
                HasSubstr("Content-Length: " + std::to_string(size) + "\r\n"));
    const std::string body = client.ReadAll();
    EXPECT_EQ(body.size(), size);
    EXPECT_EQ(Sha256Hex(body), GeneratedSha256(size));
    EXPECT_EQ(body, GeneratedBytes(0, size));
  }
}

TEST(WireServer, DripsAndPauses) {
  WireServer server;
  server.Script(WireReply()
                    .Drip("abcde", 2, std::chrono::milliseconds(1))
                    .Pause(std::chrono::milliseconds(1))
                    .Drip("fg", 0, std::chrono::milliseconds(1))
                    .Close());
  Client client(server, kGet);
  EXPECT_EQ(client.ReadAll(), "abcdefg");
}

TEST(WireServer, AClientThatLeavesEndsAHeldAnswer) {
  WireServer server;
  WireGate gate;
  server.Script(WireReply().Wait(gate).Call([] { FAIL() << "the script went on"; }));
  server.Script(WireReply().Pause(std::chrono::hours(1)));
  for (int i = 0; i < 2; ++i) {
    Client client(server, kGet);
    ASSERT_TRUE(server.WaitForHeads(static_cast<std::size_t>(i) + 1));
    client.Close(i == 1);
    ASSERT_TRUE(server.WaitIdle());
    EXPECT_EQ(server.Connections().back().end, WireEnd::kByClient);
  }
}

TEST(WireServer, HalfClosesAndGoesOnReading) {
  WireServer server;
  server.Script(StatusReply(200, "ok").At(WireStart::kHead).HalfClose().ReadBody());
  Client client(server, "POST / HTTP/1.1\r\nContent-Length: 3\r\n\r\n");
  EXPECT_THAT(client.ReadAll(), HasSubstr("ok"));
  ASSERT_TRUE(client.Send("abc"));
  ASSERT_TRUE(server.WaitForRequests(1));
  EXPECT_EQ(server.Request(0).body, "abc");
}

TEST(WireServer, TellsAResetFromAClose) {
  WireServer server;
  {
    Client client(server, "GET");
    client.Close(true);
  }
  ASSERT_TRUE(server.WaitForRequests(1));
  ASSERT_TRUE(server.WaitIdle());
  EXPECT_EQ(server.Connections()[0].end, WireEnd::kReset);
}

TEST(WireServer, EndsTheConnectionWhenTheClientWantsIt) {
  WireServer server;
  for (const char* head :
       {"GET / HTTP/1.1\r\nConnection: x, Close\r\n\r\n", "GET / HTTP/1.0\r\n\r\n"}) {
    server.Script(StatusReply(200, "bye"));
    Client client(server, head);
    EXPECT_THAT(client.ReadAll(), HasSubstr("bye"));
  }
  server.Script(StatusReply(200, "one")).Script(StatusReply(200, "two"));
  WireClient client("127.0.0.1", server.Port());
  const std::string stay = "GET / HTTP/1.0\r\nConnection: keep-alive\r\n\r\n";
  ASSERT_TRUE(client.Send(stay + stay));
  EXPECT_THAT(client.ReadUntil("two"), HasSubstr("one"));
}

TEST(WireServer, CountsAndHashesWhatItDoesNotKeep) {
  WireOptions options;
  options.keptBodyBytes = 1000;
  WireServer server(options);
  server.Script(StatusReply(200)).Script(StatusReply(200));
  const std::string body = GeneratedBytes(0, 5000000);
  Exchange(server, Post(body));
  Exchange(server, "PUT / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n" + WireChunk(body) +
                       WireChunk(""));
  ASSERT_TRUE(server.WaitForRequests(2));
  for (const WireRequest& request : server.Requests()) {
    EXPECT_EQ(request.state, WireState::kComplete);
    EXPECT_FALSE(request.bodyKept);
    EXPECT_EQ(request.body, body.substr(0, 1000));
    EXPECT_EQ(request.bodyBytes, 5000000u);
    EXPECT_EQ(request.bodySha256, GeneratedSha256(5000000));
  }
  EXPECT_EQ(server.Request(0).rawBody, body.substr(0, 1000));
}

TEST(WireServer, BindsToOtherLoopbackAddresses) {
  for (const char* address : {"127.0.0.2", "::1"}) {
    WireOptions options;
    options.address = address;
    WireServer server(options);
    server.Script(StatusReply(200).Close());
    WireClient client(address, server.Port());
    ASSERT_TRUE(client.Send(kGet));
    EXPECT_THAT(client.ReadAll(), StartsWith("HTTP/1.1 200"));
    EXPECT_EQ(server.Connections()[0].localAddress, address);
    EXPECT_EQ(server.Connections()[0].localPort, server.Port());
  }
  WireOptions options;
  options.address = "::1";
  const WireServer six(options);
  EXPECT_EQ(six.Url("/a"), "http://[::1]:" + std::to_string(six.Port()) + "/a");
  EXPECT_EQ(six.UrlWithHost("name", "/a"), "http://name:" + std::to_string(six.Port()) + "/a");
  const WireServer four;
  options.address = "127.0.0.2";
  options.port = four.Port();
  const WireServer same(options);
  EXPECT_EQ(same.Port(), four.Port());
  EXPECT_EQ(same.Url(), "http://127.0.0.2:" + std::to_string(four.Port()) + "/");
}

TEST(WireServer, RefusesWhatItCannotListenOn) {
  const WireServer taken;
  WireOptions options;
  options.port = taken.Port();
  EXPECT_THROW(WireServer{options}, std::runtime_error);
  options.address = "localhost";
  EXPECT_THROW(WireServer{options}, std::runtime_error);
  options.address = "192.0.2.1";
  options.port = 0;
  EXPECT_THROW(WireServer{options}, std::runtime_error);
}

TEST(WireServer, ServesManyClientsAtOnce) {
  WireServer server;
  server.SetHandler([](const WireRequest& request) { return StatusReply(200, request.body); });
  std::atomic<int> good{0};
  OnThreads(8, [&server, &good](int t) {
    for (int i = 0; i < 10; ++i) {
      const std::string body = "client " + std::to_string(t) + " request " + std::to_string(i);
      const std::string answer = Exchange(server, Post(body));
      good += answer.size() > body.size() &&
                      answer.compare(answer.size() - body.size(), body.size(), body) == 0
                  ? 1
                  : 0;
    }
  });
  EXPECT_EQ(good, 80);
  EXPECT_EQ(server.Requests().size(), 80u);
  ASSERT_TRUE(server.WaitIdle());
  server.ForgetEnded();
  EXPECT_THAT(server.Requests(), IsEmpty());
  EXPECT_THAT(server.Connections(), IsEmpty());
  EXPECT_EQ(server.RequestCount(), 80u);
  EXPECT_TRUE(server.WaitForRequests(80));
  EXPECT_THROW(server.Request(0), std::out_of_range);
  Exchange(server, kGet);
  EXPECT_EQ(server.Request(80).number, 80u);
}

TEST(WireServer, TellsItsThreadsNothingOfSignals) {
  // A server that took the signal on one of its threads would end the process here.
  WireServer server;
  sigset_t set;
  sigset_t before;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR1);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &set, &before), 0);
  ASSERT_EQ(kill(getpid(), SIGUSR1), 0);
  Client client(server, kGet);
  EXPECT_THAT(client.ReadUntil("\r\n"), StartsWith("HTTP/1.1 501"));
  int signal = 0;
  ASSERT_EQ(sigwait(&set, &signal), 0);
  EXPECT_EQ(signal, SIGUSR1);
  ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
}

TEST(RefusedPort, RefusesAtOnce) {
  const RefusedPort port;
  EXPECT_THROW(WireClient("127.0.0.1", port.Port()), std::runtime_error);
  EXPECT_EQ(port.Url("https", "/x"), "https://127.0.0.1:" + std::to_string(port.Port()) + "/x");
  const RefusedPort six("::1");
  EXPECT_THROW(WireClient("::1", six.Port()), std::runtime_error);
  EXPECT_EQ(six.Url(), "http://[::1]:" + std::to_string(six.Port()) + "/");
}

TEST(SilentPort, NeitherAcceptsNorRefuses) {
  const SilentPort port;
  const SocketAddress address("127.0.0.1", port.Port());
  const int client = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  ASSERT_GE(client, 0);
  EXPECT_EQ(connect(client, address.Get(), address.length), -1);
  EXPECT_EQ(errno, EINPROGRESS);
  pollfd waiting = {client, POLLOUT, 0};
  EXPECT_EQ(poll(&waiting, 1, 100), 0);
  close(client);
}

TEST(Digest, KnowsTheUsualExamples) {
  EXPECT_EQ(Sha256Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  Sha256 digest;
  digest.Update("ab", 2);
  Sha256 moved = std::move(digest);
  moved.Update("c", 1);
  EXPECT_EQ(moved.Finish(), Sha256Hex("abc"));
  moved.Update("abc", 3);
  EXPECT_EQ(moved.Finish(), Sha256Hex("abc"));
  EXPECT_EQ(GeneratedBytes(250, 3), std::string("\xfa\0\x01", 3));
  EXPECT_EQ(Sha256Hex(GeneratedBytes(0, 2000000)), GeneratedSha256(2000000));
  EXPECT_THROW(Sha256OfFile("/nowhere/at/all"), std::runtime_error);
  EXPECT_EQ(Sha256OfFile("/dev/null"), Sha256Hex(""));
}

}  // namespace
}  // namespace lumtest
