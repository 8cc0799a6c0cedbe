// Get and Post over plain HTTP: the bytes that a server sees, and what becomes of its answers.

#include "HttpLiveTest.h"

#include <chrono>
#include <thread>

#include "support/NetNamespace.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

std::string Host(const WireServer& server) {
  return "127.0.0.1:" + std::to_string(server.Port());
}

// --- What is sent

TEST_F(HttpLive, GetSendsTheseBytes) {
  WireServer server;
  server.Script(JsonReply("{\"a\":1}"));
  EXPECT_EQ(Get(server.Url("/path/%20?q=1&r=")).JsonValueToString(), "{\"a\":1}");
  EXPECT_EQ(code, 200);
  EXPECT_EQ(server.Request(0).Raw(),
            "GET /path/%20?q=1&r= HTTP/1.1\r\n"
            "Host: " +
                Host(server) +
                "\r\n"
                "User-Agent: QVcurlHttp/0.1.2\r\n"
                "Accept: */*\r\n"
                "Content-Type: application/json\r\n"
                "charsets: utf-8\r\n"
                "\r\n");
  EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST_F(HttpLive, PostSendsTheseBytes) {
  WireServer server;
  server.Script(JsonReply("[]"));
  EXPECT_EQ(Post(server.Url("/path"), "{\"b\": \"\xc3\xa4\"}").JsonValueToString(), "[]");
  EXPECT_EQ(code, 200);
  EXPECT_EQ(server.Request(0).Raw(),
            "POST /path HTTP/1.1\r\n"
            "Host: " +
                Host(server) +
                "\r\n"
                "User-Agent: QVcurlHttp/0.1.2\r\n"
                "Accept: */*\r\n"
                "Content-Type: application/json\r\n"
                "charsets: utf-8\r\n"
                "Content-Length: 11\r\n"
                "\r\n"
                "{\"b\": \"\xc3\xa4\"}");
}

TEST_F(HttpLive, PostOfAnEmptyBodySendsLengthZero) {
  WireServer server;
  server.Script(JsonReply("{}"));
  Post(server.Url(), "");
  EXPECT_EQ(code, 200);
  EXPECT_EQ(server.Request(0).Header("Content-Length"), "0");
  EXPECT_EQ(server.Request(0).body, "");
}

TEST_F(HttpLive, PostSendsZeroBytesToo) {
  WireServer server;
  server.Script(JsonReply("{}"));
  const std::string body("a\0b\r\n\0", 6);
  Post(server.Url(), body);
  EXPECT_EQ(server.Request(0).body, body);
}

TEST_F(HttpLive, PostSendsALargeBodyWhole) {
  WireServer server;
  server.Script(JsonReply("{}"));
  const std::string body(5000000, 'x');
  Post(server.Url(), body);
  EXPECT_EQ(code, 200);
  EXPECT_TRUE(server.Request(0).body == body);
}

TEST_F(HttpLive, TheCallersHeaderTakesThePlaceOfTheJsonOnes) {
  WireServer server;
  server.Script(JsonReply("{}"));
  client.SetHeaders("X-Auth-Token: t: 1");
  Get(server.Url());
  EXPECT_THAT(server.Request(0).headerLines,
              ElementsAre("Host: " + Host(server), "User-Agent: QVcurlHttp/0.1.2", "Accept: */*",
                          "X-Auth-Token: t: 1"));
  EXPECT_THAT(log.Messages(3), ElementsAre("curl set headers, headers length=18"));
}

TEST_F(HttpLive, TheCallersHeaderIsSentEvenWhenItsValueIsEmpty) {
  WireServer server;
  server.SetHandler([](const WireRequest&) { return JsonReply("{}"); });
  client.SetHeaders("X-Trace: ");
  Get(server.Url());
  Post(server.Url(), "{}");
  EXPECT_TRUE(server.Request(0).HasHeader("X-Trace")) << server.Request(0).head;
  EXPECT_TRUE(server.Request(1).HasHeader("X-Trace")) << server.Request(1).head;
}

TEST_F(HttpLive, ATextThatIsNoHeaderLineLeavesTheRequestWithoutOne) {
  WireServer server;
  for (const char* text : {"no colon", ":", ": value", ": "}) {
    client.SetHeaders(text);
    server.Script(JsonReply("{}"));
    Get(server.Url());
    EXPECT_THAT(server.Requests().back().headerLines,
                ElementsAre(StartsWith("Host: "), "User-Agent: QVcurlHttp/0.1.2", "Accept: */*"))
        << text;
  }
}

// libcurl knows no type for the body then, and calls it a form.
TEST_F(HttpLive, APostWithTheCallersHeaderHasLibcurlsContentType) {
  WireServer server;
  server.Script(JsonReply("{}"));
  client.SetHeaders("X-Auth-Token: t");
  Post(server.Url(), "{}");
  EXPECT_THAT(server.Request(0).headerLines,
              ElementsAre("Host: " + Host(server), "User-Agent: QVcurlHttp/0.1.2", "Accept: */*",
                          "X-Auth-Token: t", "Content-Length: 2",
                          "Content-Type: application/x-www-form-urlencoded"));
}

TEST_F(HttpLive, EachRequestHasAConnectionOfItsOwn) {
  WireServer server;
  server.SetHandler([](const WireRequest&) { return JsonReply("{}"); });
  Get(server.Url());
  Post(server.Url(), "{}");
  Get(server.Url());
  ASSERT_TRUE(server.WaitIdle());
  const auto connections = server.Connections();
  ASSERT_EQ(connections.size(), 3u);
  for (const WireConnection& connection : connections) {
    EXPECT_EQ(connection.end, WireEnd::kByClient);
  }
}

// --- What comes back

TEST_F(HttpLive, AnyStatusWithJsonIsHandedBack) {
  WireServer server;
  for (const int status : {200, 201, 302, 400, 401, 404, 418, 500, 503, 599}) {
    server.Script(JsonReply("{\"status\":" + std::to_string(status) + "}", status));
    EXPECT_EQ(Get(server.Url()).JsonValueToString(), "{\"status\":" + std::to_string(status) + "}");
    EXPECT_EQ(code, status);
  }
  EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST_F(HttpLive, ARedirectIsNotFollowed) {
  WireServer server;
  server.Script(StatusReply(307, "{\"moved\":true}", {"Location: " + server.Url("/elsewhere")}));
  EXPECT_EQ(Post(server.Url(), "{}").JsonValueToString(), "{\"moved\":true}");
  EXPECT_EQ(code, 307);
  EXPECT_EQ(server.RequestCount(), 1u);
}

TEST_F(HttpLive, AnAnswerWithoutABodyIsNotJson) {
  WireServer server;
  server.Script(StatusReply(204));
  EXPECT_TRUE(Get(server.Url()).IsNull());
  EXPECT_EQ(code, -1);
  EXPECT_THAT(log.Messages(1), ElementsAre("json parse() failed"));
}

TEST_F(HttpLive, ChunkedJsonIsPutTogether) {
  WireServer server;
  server.Script(ChunkedReply({"{\"a\"", ":", "[1,2]}"}));
  EXPECT_EQ(Get(server.Url()).JsonValueToString(), "{\"a\":[1,2]}");
  EXPECT_EQ(code, 200);
}

TEST_F(HttpLive, ALargeDocumentArrivesWhole) {
  WireServer server;
  const std::string text = "\"" + std::string(5000000, 'x') + "\"";
  server.Script(JsonReply(text));
  EXPECT_EQ(Get(server.Url()).JsonValueToString().size(), 5000000u);
  EXPECT_EQ(code, 200);
}

TEST_F(HttpLive, APageWhereJsonIsDueIsAFailure) {
  WireServer server;
  server.Script(StatusReply(200, "<html>100%s</html>", {"Content-Type: text/html"}));
  EXPECT_TRUE(Get(server.Url()).IsNull());
  EXPECT_EQ(code, -1);
  EXPECT_THAT(log.Messages(1), ElementsAre("json parse(<html>100%s</html>) failed"));
}

TEST_F(HttpLive, BytesThatAreNoHttpAreAFailure) {
  WireServer server;
  server.Script(WireReply("\x16\x03\x01 garbage\r\n\r\n").Close());
  ExpectGetFails(server.Url(), Failed("GET", 1, "Received HTTP/0.9 when not allowed"));
}

TEST_F(HttpLive, AServerThatClosesAtOnceIsAFailure) {
  WireServer server;
  server.Script(WireReply().Close());
  ExpectGetFails(server.Url(), Failed("GET", 52, "Empty reply from server"));
}

TEST_F(HttpLive, AServerThatClosesInMidBodyIsAFailure) {
  WireServer server;
  server.Script(WireReply(WireHead(200, {"Content-Length: 10"}) + "{}").Close());
  ExpectGetFails(server.Url(), Failed("GET", 18, CurlBytesMissing(8)));
}

TEST_F(HttpLive, AServerThatResetsIsAFailure) {
  WireServer server;
  server.Script(WireReply(WireHead(200, {"Content-Length: 10"})).Reset());
  ExpectGetFails(server.Url(), Failed("GET", 56, "Recv failure: .*"));
}

// The one test that waits for the limit.
TEST_F(HttpLive, AServerThatStallsIsAFailureAfterFiveSeconds) {
  WireServer server;
  server.Script(WireReply(WireHead(200, {"Content-Length: 10"}) + "{}").Stall());
  const auto start = std::chrono::steady_clock::now();
  ExpectGetFails(server.Url(),
                 Failed("GET", 28,
                        "Operation timed out after [0-9]+ milliseconds with 2 out of 10 bytes "
                        "received"));
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_GE(took, std::chrono::milliseconds(4900));
  EXPECT_LT(took, std::chrono::seconds(30));
}

TEST_F(HttpLive, ARefusedPortIsAFailure) {
  const RefusedPort port;
  ExpectGetFails(port.Url(), Failed("GET", 7, CurlRefused("127.0.0.1")));
  code = 7;
  EXPECT_TRUE(Post(port.Url(), "{}").IsNull());
  EXPECT_EQ(code, -1);
  EXPECT_THAT(log.Last().message, MatchesRegex(Failed("POST", 7, "Failed to connect .*")));
}

// In a network without a way out, where no packet leaves the machine.
TEST_F(HttpLive, AHostThatCannotBeReachedOrResolvedIsAFailure) {
  const NetNamespaceResult result = RunInNetNamespace([this] {
    ExpectGetFails("http://10.9.8.7/", Failed("GET", 7, ".*"));
    ExpectGetFails("http://nowhere.invalid/",
                   Failed("GET", 6, "Could not resolve host: nowhere.invalid"));
    return HasFailure() ? 1 : 0;
  });
  EXPECT_TRUE(result.Succeeded()) << result.Describe();
}

TEST_F(HttpLive, AnEmptyUrlIsRefusedAndTheCodeStays) {
  EXPECT_TRUE(Get("").IsNull());
  EXPECT_EQ(code, 7);
  EXPECT_TRUE(Post("", "{}").IsNull());
  EXPECT_EQ(code, 7);
  EXPECT_THAT(log.Messages(), ElementsAre("GET url is empty", "POST url is empty"));
}

TEST_F(HttpLive, AUrlThatIsNoneIsAFailure) {
  ExpectGetFails("http://", Failed("GET", 3, ".*"));
  ExpectGetFails("gopherhole://x/", Failed("GET", 1, ".*"));
}

// The address is of the other family: libcurl gives up before it tries, and says no more.
// A name is looked up for IPv4 alone in every release; an address that is written out is 8.23's
// exception.
TEST_F(HttpLive, AnIPv6AddressIsNotConnectedTo) {
  WireServer server(IPv6Options());
  if (IsCurl823()) {
    server.Script(JsonReply("1"));
    Get(server.Url());
    EXPECT_EQ(code, 200);
    return;
  }
  ExpectGetFails(server.Url(), Failed("GET", 7, ""));
  EXPECT_EQ(server.Connections().size(), 0u);
}

TEST_F(HttpLive, ALogLineNamesFileLineAndFunction) {
  const RefusedPort port;
  Get(port.Url());
  const LogRecord record = log.Last();
  EXPECT_EQ(record.file, "BaseAPI/LumCurlHttp/src/LumCurlHttpPrivate");
  EXPECT_EQ(record.function, "Get");
  EXPECT_GT(record.line, 0);
  EXPECT_EQ(record.tag, " ");
  EXPECT_EQ(record.detail, "");
  EXPECT_EQ(record.level, 1);
}

// --- Threads

// The first request is held until another connection comes, which it must not, or some time has
// passed.
TEST_F(HttpLive, TwoThreadsOnOneObjectTakeTurns) {
  WireServer server;
  bool overlapped = false;
  server.Script(
      WireReply()
          .Call([&] { overlapped = server.WaitForConnections(2, std::chrono::milliseconds(300)); })
          .Send(WireAnswer(200, "1")));
  server.Script(JsonReply("2"));
  int codes[] = {0, 0};
  std::thread first([&] { client.Get(server.Url(), "", false, codes[0]); });
  std::thread second([&] { client.Post(server.Url(), "{}", false, codes[1]); });
  first.join();
  second.join();
  EXPECT_FALSE(overlapped);
  EXPECT_THAT(codes, ElementsAre(200, 200));
}

TEST_F(HttpLive, TwoObjectsRunSideBySide) {
  WireServer server;
  for (int i = 0; i < 2; ++i) {
    server.Script(WireReply()
                      .Call([&] { EXPECT_TRUE(server.WaitForRequests(2)); })
                      .Send(WireAnswer(200, "{}")));
  }
  LumCurlHttp other;
  int codes[] = {0, 0};
  std::thread first([&] { client.Get(server.Url(), "", false, codes[0]); });
  std::thread second([&] { other.Get(server.Url(), "", false, codes[1]); });
  first.join();
  second.join();
  EXPECT_THAT(codes, ElementsAre(200, 200));
}

}  // namespace
}  // namespace lumtest
