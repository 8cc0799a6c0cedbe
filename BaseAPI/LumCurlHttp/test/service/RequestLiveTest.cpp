// Reports, tokens, JSON requests and the address query over real sockets: the bytes that a server
// sees, and what its answers come to.

#include "ServiceLiveTest.h"
#include "support/Process.h"

namespace lumtest {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const char kDocument[] = R"({"b": 1, "a": ["x", "y"], "accessId": "id7", "n": null})";

std::string Styled(const std::string& text) {
  return Json(text).ToStyledString();
}

// What GNU gzip makes of a body.
std::string Gunzip(const std::string& body) {
  ProcessOptions options;
  options.input = body;
  const ProcessResult result = RunCommand({"gzip", "-dc"}, options);
  EXPECT_TRUE(result.Succeeded()) << result.Describe();
  return result.out;
}

class RequestLiveTest : public ServiceLiveTest {};

// --- The bytes of each request ---

TEST_F(RequestLiveTest, PlainReportOnTheWire) {
  server.SetHandler(Always(200));

  EXPECT_EQ(client.ReportData(server.Url("/report"), Json(kDocument), "t", ""), 0);
  EXPECT_EQ(client.ReportData(server.Url("/report?x=1"), Json(kDocument), "t", 3, "t1"), 0);

  const std::string body = Styled(kDocument);
  EXPECT_EQ(
      server.Request(0).Raw(),
      Head("POST", "/report", {"Content-Type: application/json", "X-Auth-Token: t"}, body.size()) +
          body);
  LumJson::Value topical = Json(kDocument);
  topical.AddJsonValue("topic_name", "t1");
  const std::string other = topical.ToStyledString();
  EXPECT_EQ(server.Request(1).Raw(),
            Head("POST", "/report?x=1", {"Content-Type: application/json", "X-Auth-Token: t"},
                 other.size()) +
                other);
  EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST_F(RequestLiveTest, GzipReportOnTheWireUnpacksToTheStyledDocument) {
  server.SetHandler(Always(204));
  const std::string url = server.Url("/gzip");

  EXPECT_EQ(client.ReportDataWithGzip(url, Json(kDocument), "t", "id9"), 0);
  EXPECT_EQ(client.ReportDataWithGzip(url, Json(kDocument), "t"), 0);
  EXPECT_EQ(client.ReportDataWithGzip(url, Json(kDocument), "t", 77U), 0);
  EXPECT_EQ(client.ReportDataWithGzip(url, Json(kDocument), "t", "id9", ""), 0);

  const char* const kIds[] = {"id9", "id7", "id7", "id9"};
  for (std::size_t i = 0; i < 4; ++i) {
    const WireRequest request = server.Request(i);
    EXPECT_EQ(request.head,
              Head("POST", "/gzip",
                   {"Content-Type: application/json", "X-Auth-Token: t",
                    std::string("X-ORV-ACCESS-ID: ") + kIds[i], "Content-Encoding: gzip"},
                   request.body.size()));
    EXPECT_EQ(Gunzip(request.body), Styled(kDocument));
  }
  EXPECT_EQ(log.Count(3), 4U);
  EXPECT_THAT(log.Messages(3),
              Contains("Post to url=" + url +
                       " success, src Length=" + std::to_string(Styled(kDocument).size()) +
                       ", gzip length=" + std::to_string(server.Request(0).body.size())));
}

TEST_F(RequestLiveTest, LargeGzipReportArrivesWhole) {
  server.SetHandler(Always(200));
  LumJson::Value document;
  for (int i = 0; i < 20000; ++i) {
    document.AddJsonValue("member" + std::to_string(i), std::to_string(i * 7919));
  }

  EXPECT_EQ(client.ReportDataWithGzip(server.Url(), document, "t", "id", "topic"), 0);

  document.AddJsonValue("topic_name", "topic");
  EXPECT_EQ(Gunzip(server.Request(0).body), document.ToStyledString());
}

TEST_F(RequestLiveTest, TokensOnTheWire) {
  server.SetHandler(Always(200, R"({"token": "abc"})"));
  const std::string request = R"({"user": "u", "password": "p"})";
  const std::string body = Styled(request);

  EXPECT_EQ(client.GetToken(server.Url("/token"), Json(request))["token"].JsonValueToString(),
            "abc");
  EXPECT_EQ(
      client.RefreshToken(server.Url("/token"), Json(request), "abc")["token"].JsonValueToString(),
      "abc");

  EXPECT_EQ(server.Request(0).Raw(),
            Head("POST", "/token", {"Content-Type: application/json"}, body.size()) + body);
  EXPECT_EQ(
      server.Request(1).Raw(),
      Head("PUT", "/token", {"Content-Type: application/json", "X-Auth-Token: abc"}, body.size()) +
          body);
}

TEST_F(RequestLiveTest, JsonRequestsSendTheCallersLinesInTheirOrder) {
  server.SetHandler(Always(200, "[1, 2]"));
  const Lines lines = {"X-Z: last first", "X-A: 1", "X-Z: again", "Content-Type: text/x"};
  int status = -7;

  EXPECT_EQ(client.Get(server.Url("/a?b=c"), lines, status).JsonValueToString(), "[1,2]");
  EXPECT_EQ(status, 200);
  status = -7;
  EXPECT_EQ(client.Post(server.Url("/p"), "any bytes", lines, status).JsonValueToString(), "[1,2]");
  EXPECT_EQ(status, 200);

  EXPECT_EQ(server.Request(0).Raw(), Head("GET", "/a?b=c", lines));
  EXPECT_EQ(server.Request(1).Raw(), Head("POST", "/p", lines, 9) + "any bytes");
}

TEST_F(RequestLiveTest, JsonRequestsWithoutLinesHaveLibcurlsOwn) {
  server.SetHandler(Always(200, "1"));
  int status = 0;

  client.Get(server.Url(), {}, status);
  client.Post(server.Url(), "", {}, status);

  EXPECT_EQ(server.Request(0).Raw(), Head("GET", "/", {}));
  EXPECT_THAT(server.Request(1).headerLines,
              ElementsAre(StartsWith("Host: "), "Accept: */*", "Content-Length: 0",
                          "Content-Type: application/x-www-form-urlencoded"));
}

TEST_F(RequestLiveTest, AddressQueryIsNotEncoded) {
  server.SetHandler(Always(200, R"({"url": "u"})"));

  client.GetLogAddress(server.Url("/address"), "a1", "t", "x.log");
  client.GetLogAddress(server.Url("/address?v=1"), "a&b=c", "t", "x&y=%2F+\xC3\xBC.log");

  const Lines lines = {"Content-Type: application/json", "X-Auth-Token: t"};
  EXPECT_EQ(server.Request(0).Raw(), Head("GET", "/address?access_id=a1&file_name=x.log", lines));
  EXPECT_EQ(server.Request(1).Raw(),
            Head("GET", "/address?v=1?access_id=a&b=c&file_name=x&y=%2F+\xC3\xBC.log", lines));
}

TEST_F(RequestLiveTest, BlankInTheAddressQueryIsRefusedByLibcurl) {
  // It is handed on as it stands; libcurl takes no URL that holds one.
  EXPECT_TRUE(client.GetLogAddress(server.Url("/address"), "a1", "t", "x y.log").IsNull());

  EXPECT_EQ(server.Connections().size(), 0U);
  const std::vector<std::string> errors = log.Messages(1);
  ASSERT_EQ(errors.size(), 2U);
  const std::string start = "GET failed for " + CurlError(3) + ", resOps: 3, code: 0, errorBuf: ";
  ASSERT_THAT(errors[0], StartsWith(start));
  // What libcurl says of it, each version something else.
  EXPECT_EQ(errors[1], "Get from " + server.Url("/address") +
                           " failed, json body: GET failed for: " + errors[0].substr(start.size()) +
                           " .");
}

TEST_F(RequestLiveTest, HashInTheAddressQueryEndsIt) {
  server.SetHandler(Always(200, "1"));

  client.GetLogAddress(server.Url("/address"), "a#1", "t", "x.log");
  client.GetLogAddress(server.Url("/address"), "a1", "t", "x#.log");

  EXPECT_EQ(server.Request(0).target, "/address?access_id=a");
  EXPECT_EQ(server.Request(1).target, "/address?access_id=a1&file_name=x");
}

TEST_F(RequestLiveTest, LibcurlEncodesBytesBeyondAsciiInAPathAndNotInAQuery) {
  server.SetHandler(Always(200, "1"));
  int status = 0;

  client.Get(server.Url("/\xC3\xBC/%2F+\"<>^`{|}?q=\xC3\xBC"), {}, status);

  EXPECT_THAT(server.Request(0).target, ::testing::StrCaseEq("/%C3%BC/%2F+\"<>^`{|}?q=\xC3\xBC"));
}

TEST_F(RequestLiveTest, LinesWithoutAValueAreSent) {
  server.SetHandler(Always(200, "1"));
  int status = 0;

  client.ReportData(server.Url(), Json(kDocument), "", "");
  client.ReportDataWithGzip(server.Url(), Json(R"({"a": "a document of some length"})"), "");
  client.RefreshToken(server.Url(), Json("{}"), "");
  client.GetLogAddress(server.Url(), "", "", "");
  client.Get(server.Url(), {"X-First: ", "X-Second: 2"}, status);

  // The blank behind the colon is no part of a value (RFC 9110 section 5.5).
  const std::string emptyToken = "Content-Type: application/json\r\nX-Auth-Token:";
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_THAT(server.Request(i).head, HasSubstr(emptyToken)) << i;
    EXPECT_THAT(server.Request(i).HeaderValues("X-Auth-Token"), ElementsAre("")) << i;
  }
  EXPECT_THAT(server.Request(1).HeaderValues("X-ORV-ACCESS-ID"), ElementsAre(""));
  EXPECT_THAT(server.Request(4).HeaderValues("X-First"), ElementsAre(""));
  EXPECT_THAT(log.Messages(2), Contains("accessId is Empty"));
}

// --- Answers ---

TEST_F(RequestLiveTest, ProxyOfTheEnvironmentIsGoneThrough) {
  server.SetHandler(Always(200, "1"));
  int status = 0;
  setenv("http_proxy", server.Url().c_str(), 1);

  client.Get("http://far.example/path", {}, status);
  setenv("no_proxy", "127.0.0.1", 1);
  client.Get(server.Url("/near"), {}, status);
  unsetenv("no_proxy");
  unsetenv("http_proxy");

  EXPECT_EQ(server.Request(0).target, "http://far.example/path");
  EXPECT_EQ(server.Request(1).target, "/near");
}

TEST_F(RequestLiveTest, ErrorTextOfSixtyFourMegabytesBecomesTheLastErrorWhole) {
  constexpr std::size_t kSize = 64U << 20;
  server.Script(GeneratedReply(kSize, 500));

  EXPECT_EQ(client.ReportData(server.Url(), Json(kDocument), "t", 0, ""), -10000);

  EXPECT_TRUE(client.GetLastErrorBody() == GeneratedBytes(0, kSize));
  log.Clear();
}

// --- Documents and lines that ask for trouble ---

TEST_F(RequestLiveTest, DocumentsThatAreNoObjectAreSentAsTheyStand) {
  server.SetHandler(Always(200));
  for (const char* text :
       {R"(["an array", "of", "texts"])", R"("a text that is long enough")", "[]", "null"}) {
    SCOPED_TRACE(text);
    const std::size_t first = server.RequestCount();
    const bool fits = Styled(text).size() >= 20;
    const int expected = fits ? 0 : -10000;
    // A topic and the identifier that was looked for turn null into an object.
    const bool isNull = Json(text).IsNull();

    EXPECT_EQ(client.ReportData(server.Url(), Json(text), "t", ""), 0);
    EXPECT_EQ(client.ReportData(server.Url(), Json(text), "t", 5, "topic"), 0);
    EXPECT_EQ(client.ReportDataWithGzip(server.Url(), Json(text), "t", "id"), expected);
    EXPECT_EQ(client.ReportDataWithGzip(server.Url(), Json(text), "t"), isNull ? 0 : expected);
    EXPECT_EQ(client.ReportDataWithGzip(server.Url(), Json(text), "t", 1U), isNull ? 0 : expected);
    EXPECT_EQ(client.ReportDataWithGzip(server.Url(), Json(text), "t", "id", "topic"),
              isNull ? 0 : expected);

    EXPECT_EQ(server.Request(first).body, Styled(text));
    LumJson::Value topical = Json(text);
    topical.AddJsonValue("topic_name", "topic");
    EXPECT_EQ(server.Request(first + 1).body, topical.ToStyledString());
    for (std::size_t i = first + 2; i < server.RequestCount(); ++i) {
      EXPECT_EQ(Json(Gunzip(server.Request(i).body)).IsObject(), isNull);
    }
  }
}

TEST_F(RequestLiveTest, LineBreakInATokenIsSentAsItStands) {
  server.SetHandler(Always(200));

  EXPECT_EQ(client.ReportData(server.Url(), Json(kDocument), "t\r\nX-Smuggled: yes", ""), 0);

  EXPECT_EQ(server.Request(0).Header("X-Auth-Token"), "t");
  EXPECT_EQ(server.Request(0).Header("X-Smuggled"), "yes");
}

TEST_F(RequestLiveTest, LinesThatAreNoneAreNotSent) {
  server.SetHandler(Always(200, "1"));
  int status = 0;

  client.Get(server.Url(), {"", ":", ": ", ": value", " ", "no colon", "X-Good: 1", "X-Empty;"},
             status);

  EXPECT_EQ(status, 200);
  EXPECT_EQ(server.Request(0).Raw(), Head("GET", "/", {"X-Good: 1", "X-Empty:"}));
}

TEST_F(RequestLiveTest, LongTokenIsSentAndOneBeyondLibcurlsLimitIsNot) {
  server.SetHandler(Always(200));
  const std::string token(300000, 't');

  EXPECT_EQ(client.ReportData(server.Url(), Json(kDocument), token, ""), 0);
  EXPECT_EQ(server.Request(0).Header("X-Auth-Token"), token);

  const int result =
      client.ReportData(server.Url(), Json(kDocument), std::string(2 << 20, 't'), "");
  if (CurlLeavesLongLinesOut()) {
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(server.Request(1).HasHeader("X-Auth-Token"));
    return;
  }
  EXPECT_EQ(result, -10000);
  EXPECT_EQ(log.Count(1), 2U);
  EXPECT_THAT(client.GetLastErrorBody(), StartsWith("POST failed for: "));
}

TEST_F(RequestLiveTest, UrlsThatAreNoneFailWithAStatusOfZero) {
  for (const char* url : {"", "no url at all", "http://", "foo://x/", "http://127.0.0.1:99999/",
                          "http://[::1/", "http://127.0.0.1:1/\x01"}) {
    int status = -7;
    EXPECT_TRUE(client.Get(url, {}, status).IsNull()) << url;
    EXPECT_EQ(status, 0) << url;
    EXPECT_EQ(client.ReportData(url, Json(kDocument), "t", ""), -10000) << url;
  }
  EXPECT_EQ(log.Count(1), 28U);
}

}  // namespace
}  // namespace lumtest
