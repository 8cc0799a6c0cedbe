// Get and Post over plain HTTP: the bytes that a server sees, and what becomes of its answers. What
// goes wrong on the way to any operation is the faults' (../faults).

#include "LiveTest.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

// A server that answers "{}" unless it is given a script.
class HttpLiveTest : public LiveTest {
 protected:
  HttpLiveTest() {
    server.SetHandler([](const WireRequest&) { return JsonReply("{}"); });
  }

  LumJson::Value Get(const std::string& url) {
    return Quietly([&] { return client.Get(url, "", false, code); });
  }

  LumJson::Value Post(const std::string& url, const std::string& body) {
    return Quietly([&] { return client.Post(url, body, false, code); });
  }

  // A request that fails: the code is -1, the value null, and one line says why.
  void ExpectGetFails(const std::string& url, int result, const std::string& reason) {
    log.Clear();
    code = 7;
    EXPECT_TRUE(Get(url).IsNull());
    EXPECT_EQ(code, -1);
    const std::string number = std::to_string(result);
    EXPECT_THAT(log.Messages(),
                ElementsAre(MatchesRegex("GET failed for " + CurlErrorPattern(result) + ", ret: " +
                                         number + ", code: [0-9]+, errorBuf: " + reason)));
  }

  WireServer server;
  const std::string host = "127.0.0.1:" + std::to_string(server.Port());
  const std::string usualLines = "Host: " + host +
                                 "\r\n"
                                 "User-Agent: QVcurlHttp/0.1.2\r\n"
                                 "Accept: */*\r\n"
                                 "Content-Type: application/json\r\n"
                                 "charsets: utf-8\r\n";
  LumCurlHttp client;
  int code = 7;
};

// --- What is sent

TEST_F(HttpLiveTest, GetSendsTheseBytes) {
  server.Script(JsonReply("{\"a\":1}"));
  EXPECT_EQ(Get(server.Url("/path/%20?q=1&r=")).JsonValueToString(), "{\"a\":1}");
  EXPECT_EQ(code, 200);
  EXPECT_EQ(server.Request(0).Raw(), "GET /path/%20?q=1&r= HTTP/1.1\r\n" + usualLines + "\r\n");
  EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST_F(HttpLiveTest, PostSendsTheseBytes) {
  server.Script(JsonReply("[]"));
  EXPECT_EQ(Post(server.Url("/path"), "{\"b\": \"\xc3\xa4\"}").JsonValueToString(), "[]");
  EXPECT_EQ(code, 200);
  EXPECT_EQ(server.Request(0).Raw(), "POST /path HTTP/1.1\r\n" + usualLines +
                                         "Content-Length: 11\r\n\r\n{\"b\": \"\xc3\xa4\"}");
}

TEST_F(HttpLiveTest, PostSendsItsBodyWhole) {
  std::size_t number = 0;
  for (const std::string& body :
       {std::string(), std::string("a\0b\r\n\0", 6), std::string(5000000, 'x')}) {
    Post(server.Url(), body);
    EXPECT_EQ(code, 200);
    const WireRequest request = server.Request(number++);
    EXPECT_EQ(request.Header("Content-Length"), std::to_string(body.size()));
    EXPECT_TRUE(request.body == body) << body.size();
  }
}

TEST_F(HttpLiveTest, TheCallersHeaderTakesThePlaceOfTheJsonOnes) {
  client.SetHeaders("X-Auth-Token: t: 1");
  Get(server.Url());
  EXPECT_THAT(server.Request(0).headerLines,
              ElementsAre("Host: " + host, "User-Agent: QVcurlHttp/0.1.2", "Accept: */*",
                          "X-Auth-Token: t: 1"));
  EXPECT_THAT(log.Messages(3), ElementsAre("curl set headers, headers length=18"));
}

TEST_F(HttpLiveTest, TheCallersHeaderIsSentEvenWhenItsValueIsEmpty) {
  client.SetHeaders("X-Trace: ");
  Get(server.Url());
  Post(server.Url(), "{}");
  EXPECT_TRUE(server.Request(0).HasHeader("X-Trace")) << server.Request(0).head;
  EXPECT_TRUE(server.Request(1).HasHeader("X-Trace")) << server.Request(1).head;
}

TEST_F(HttpLiveTest, ATextThatIsNoHeaderLineLeavesTheRequestWithoutOne) {
  for (const char* text : {"no colon", ":", ": value", ": "}) {
    client.SetHeaders(text);
    Get(server.Url());
    EXPECT_THAT(server.Requests().back().headerLines,
                ElementsAre(StartsWith("Host: "), "User-Agent: QVcurlHttp/0.1.2", "Accept: */*"))
        << text;
  }
}

// libcurl knows no type for the body then, and calls it a form.
TEST_F(HttpLiveTest, APostWithTheCallersHeaderHasLibcurlsContentType) {
  client.SetHeaders("X-Auth-Token: t");
  Post(server.Url(), "{}");
  EXPECT_THAT(
      server.Request(0).headerLines,
      ElementsAre("Host: " + host, "User-Agent: QVcurlHttp/0.1.2", "Accept: */*", "X-Auth-Token: t",
                  "Content-Length: 2", "Content-Type: application/x-www-form-urlencoded"));
}

// --- What comes back

TEST_F(HttpLiveTest, ALargeDocumentArrivesWhole) {
  const std::string text = "\"" + std::string(5000000, 'x') + "\"";
  server.Script(JsonReply(text));
  EXPECT_EQ(Get(server.Url()).JsonValueToString().size(), 5000000u);
  EXPECT_EQ(code, 200);
}

TEST_F(HttpLiveTest, AUrlThatIsNoneIsAFailure) {
  ExpectGetFails("http://", 3, ".*");
  ExpectGetFails("gopherhole://x/", 1, ".*");
}

// The address is of the other family: libcurl gives up before it tries, and says no more.
// A name is looked up for IPv4 alone in every release; an address that is written out is 8.23's
// exception.
TEST_F(HttpLiveTest, AnIPv6AddressIsNotConnectedTo) {
  WireServer six(IPv6Options());
  if (IsCurl823()) {
    six.Script(JsonReply("1"));
    Get(six.Url());
    EXPECT_EQ(code, 200);
    return;
  }
  ExpectGetFails(six.Url(), 7, "");
  EXPECT_EQ(six.Connections().size(), 0u);
}

TEST_F(HttpLiveTest, ALogLineNamesFileLineAndFunction) {
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

}  // namespace
}  // namespace lumtest
