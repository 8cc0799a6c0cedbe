// Routes, tokens, echo, log addresses, misbehaviour, events and the access log.
#include "Backend.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>

#include "Fakes.h"
#include "Faults.h"
#include "support/CaptureFd.h"
#include "support/Files.h"

namespace {

using lumtest::Await;
using lumtest::ErrorOf;
using lumtest::FakeBody;
using lumtest::Gzip;
using lumtest::MakeCall;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

Note NoteOf(const char* kind, const std::string& text, const std::string& object = "") {
  Note note;
  note.kind = kind;
  note.text = text;
  note.object = object;
  return note;
}

class BackendTest : public testing::Test {
 protected:
  BackendTest() { m_options.root = m_temp.Path(); }

  // The back end under test, made at its first use so that a test can set options before.
  Backend& Subject() {
    if (!m_backend) {
      m_backend.emplace(m_options, "");
    }
    return *m_backend;
  }

  Reply Ask(const std::string& method, const std::string& target, const std::string& body = "",
            const std::vector<std::string>& lines = {}) {
    FakeBody source(body);
    const Reply reply = Await(Subject().Handle(MakeCall(method, target, lines), source));
    m_reads = source.reads;
    return reply;
  }

  static LumJson::Value Parsed(const Reply& reply) {
    LumJson::Value document;
    EXPECT_TRUE(document.Parse(reply.body)) << reply.body;
    return document;
  }

  std::string NewToken() { return Parsed(Ask("POST", "/token", "{}"))["token"].AsString(); }

  void Finish(const std::string& method, const std::string& target, int status, Note note,
              std::uint64_t bytesIn = 0, std::uint64_t bytesOut = 100,
              const std::vector<std::string>& lines = {}) {
    Exchange exchange;
    exchange.call = MakeCall(method, target, lines);
    exchange.status = status;
    exchange.reply.note = std::move(note);
    exchange.bytesIn = bytesIn;
    exchange.bytesOut = bytesOut;
    Await(Subject().Finished(std::move(exchange)));
  }

  LumJson::Value Events() { return Parsed(Ask("GET", "/events"))["events"]; }

  lumtest::TempDir m_temp;
  Options m_options;
  std::optional<Backend> m_backend;
  int m_reads = 0;  // of the last body
};

TEST_F(BackendTest, UnknownPathsAndMethods) {
  for (const char* target : {"/nothing", "/echo/", "/echo/x", "/report/x", "/files", "/objects",
                             "/configs", "//echo", "/Echo", "/token/"}) {
    EXPECT_EQ(Ask("GET", target).status, 404) << target;
  }
  const std::pair<const char*, const char*> kAllowed[] = {{"/", "GET"},
                                                          {"/events", "GET"},
                                                          {"/echo", "GET, POST, PUT"},
                                                          {"/files/a", "GET"},
                                                          {"/report", "POST"},
                                                          {"/token", "POST, PUT"},
                                                          {"/log-address", "GET"},
                                                          {"/objects/a", "PUT, GET"},
                                                          {"/configs/a/b/c", "GET"}};
  for (const auto& [target, allowed] : kAllowed) {
    const Reply reply = Ask("DELETE", target);
    EXPECT_EQ(reply.status, 405) << target;
    ASSERT_EQ(reply.headers.size(), 1u);
    EXPECT_EQ(reply.headers[0].name, "Allow");
    EXPECT_EQ(reply.headers[0].value, allowed);
  }
}

TEST_F(BackendTest, HeadIsAnsweredLikeGet) {
  EXPECT_EQ(Ask("HEAD", "/echo").status, 200);
  EXPECT_EQ(Ask("HEAD", "/report").status, 405);
}

TEST_F(BackendTest, EchoesARequestAndHidesItsSecrets) {
  const LumJson::Value echo =
      Parsed(Ask("GET", "/echo?a=%20b", "",
                 {"Host: localhost", "X-Auth-Token: t0ken", "authorization: Basic abc",
                  "x-zun-security-token: sec", "Cookie: c", "Proxy-Authorization: p", "X: \xFF",
                  "X-Auth-Token:"}));
  EXPECT_EQ(echo["method"].AsString(), "GET");
  EXPECT_EQ(echo["path"].AsString(), "/echo");
  EXPECT_EQ(echo["query"].AsString(), "a=%20b");
  EXPECT_EQ(echo["scheme"].AsString(), "http");
  EXPECT_TRUE(echo["clientCertificate"].IsNull());
  EXPECT_FALSE(echo.Has("body"));
  EXPECT_EQ(
      echo["headers"].JsonValueToString(),
      R"([{"name":"Host","value":"localhost"},{"name":"X-Auth-Token","value":"***"},)"
      R"({"name":"authorization","value":"***"},{"name":"x-zun-security-token","value":"***"},)"
      R"({"name":"Cookie","value":"***"},{"name":"Proxy-Authorization","value":"***"},)"
      R"({"name":"X","value":"\\xff"},{"name":"X-Auth-Token","value":""}])");
}

TEST_F(BackendTest, EchoesADocument) {
  for (const char* method : {"POST", "PUT"}) {
    EXPECT_EQ(Parsed(Ask(method, "/echo", R"({"n": [18446744073709551615, 0.1]})"))["body"]
                  .JsonValueToString(),
              R"({"n":[18446744073709551615,0.1]})");
  }
  EXPECT_EQ(Parsed(Ask("POST", "/echo", Gzip("[1]"), {"Content-Encoding: gzip"}))["body"]
                .JsonValueToString(),
            "[1]");
  const Reply bad = Ask("POST", "/echo", "{");
  EXPECT_EQ(bad.status, 400);
  EXPECT_EQ(ErrorOf(bad.body), "the body is no valid JSON");
}

TEST_F(BackendTest, EchoSaysWhatTlsKnows) {
  Call call = MakeCall("GET", "/echo");
  call.tls = true;
  call.clientSubject = "CN=client";
  FakeBody body;
  const LumJson::Value echo = Parsed(Await(Subject().Handle(call, body)));
  EXPECT_EQ(echo["scheme"].AsString(), "https");
  EXPECT_EQ(echo["clientCertificate"].AsString(), "CN=client");
}

TEST_F(BackendTest, TokensAreHandedOutAndRefreshed) {
  m_options.tokenLifetime = 100;
  const LumJson::Value answer = Parsed(Ask("POST", "/token", "{\"user\":\"u\"}"));
  EXPECT_EQ(answer["expiresIn"].AsInt64(), 100);
  const std::string first = answer["token"].AsString();
  const std::string second =
      Parsed(Ask("PUT", "/token", "{}", {"X-Auth-Token: " + first}))["token"].AsString();
  EXPECT_NE(first, second);
  EXPECT_EQ(Ask("POST", "/report", "1", {"X-Auth-Token: " + second}).status, 200);
  EXPECT_EQ(Ask("POST", "/report", "1", {"X-Auth-Token: " + first}).status, 401);
}

TEST_F(BackendTest, ARefreshThatFailsKeepsTheToken) {
  const std::string token = NewToken();
  EXPECT_EQ(Ask("PUT", "/token", "{", {"X-Auth-Token: " + token}).status, 400);
  EXPECT_EQ(Ask("POST", "/report", "1", {"X-Auth-Token: " + token}).status, 200);
}

TEST_F(BackendTest, ARequestForATokenIsAnObject) {
  for (const char* body : {"", "null", "[]", "\"text\"", "{"}) {
    EXPECT_EQ(Ask("POST", "/token", body).status, 400) << body;
  }
}

TEST_F(BackendTest, TokensAreCheckedBeforeTheBodyIsRead) {
  for (const auto& [method, target] : std::vector<std::pair<std::string, std::string>>{
           {"POST", "/report"}, {"PUT", "/token"}, {"GET", "/log-address?access_id=a"}}) {
    for (const std::vector<std::string>& lines :
         {std::vector<std::string>{}, {"X-Auth-Token:"}, {"X-Auth-Token: wrong"}}) {
      const Reply reply = Ask(method, target, "1", lines);
      EXPECT_EQ(reply.status, 401) << target;
      EXPECT_EQ(ErrorOf(reply.body), lines.size() == 1 && lines[0].back() == 'g'
                                         ? "the token is unknown"
                                         : "no token in X-Auth-Token");
      EXPECT_EQ(m_reads, 0);
      ASSERT_EQ(reply.headers.size(), 1u);
      EXPECT_EQ(reply.headers[0].name, "WWW-Authenticate");
    }
  }
}

TEST_F(BackendTest, AnExpiredTokenIsCalledExpired) {
  m_options.tokenLifetime = 0;
  EXPECT_EQ(ErrorOf(Ask("POST", "/report", "1", {"X-Auth-Token: " + NewToken()}).body),
            "the token has expired");
}

TEST_F(BackendTest, AnOpenBackEndAsksForNoToken) {
  m_options.open = true;
  EXPECT_EQ(Ask("POST", "/report", "1").status, 200);
  EXPECT_EQ(Ask("PUT", "/token", "{}").status, 200);
  EXPECT_EQ(Ask("GET", "/log-address?access_id=a&file_name=b").status, 200);
}

TEST_F(BackendTest, GivesLogAddresses) {
  m_options.open = true;
  const LumJson::Value answer = Parsed(Ask("GET", "/log-address?access_id=a1&file_name=x.log"));
  EXPECT_EQ(answer["url"].AsString(), "http://127.0.0.1:8080/objects/logs/x.log");
  EXPECT_EQ(answer["accessId"].AsString(), "a1");
  EXPECT_EQ(answer["fileName"].AsString(), "x.log");
}

TEST_F(BackendTest, ValuesOfALogAddressAreTakenAsTheyStand) {
  m_options.open = true;
  const LumJson::Value answer =
      Parsed(Ask("GET", "/log-address?v=1?access_id=a=%41&file_name=x&y=1%?\xC3\xA9.log"));
  EXPECT_EQ(answer["accessId"].AsString(), "a=%41");
  EXPECT_EQ(answer["fileName"].AsString(), "x&y=1%?\xC3\xA9.log");
  EXPECT_EQ(answer["url"].AsString(),
            "http://127.0.0.1:8080/objects/logs/x%26y%3D1%25%3F%C3%A9.log");
}

TEST_F(BackendTest, ALogAddressNeedsBothValues) {
  m_options.open = true;
  for (const char* query :
       {"", "?access_id=a", "?file_name=a", "?file_name=a&access_id=b", "?access_id=&file_name=b",
        "?access_id=a&file_name=", "?access_id=a&file_name=..", "?access_id=a&file_name=b/c"}) {
    EXPECT_EQ(Ask("GET", std::string("/log-address") + query).status, 400) << query;
  }
}

TEST_F(BackendTest, ServesFilesAndNothingElse) {
  Subject();
  m_temp.MakeDir("files/sub");
  m_temp.Write("files/sub/a.txt", "text");
  m_temp.Write("secret", "secret");
  ASSERT_EQ(::symlink(m_temp.Path("secret").c_str(), m_temp.Path("files/link").c_str()), 0);
  ASSERT_EQ(::symlink(m_temp.Path().c_str(), m_temp.Path("files/up").c_str()), 0);
  const Reply reply = Ask("GET", "/files/sub/a.txt");
  ASSERT_TRUE(reply.stream);
  EXPECT_EQ(reply.contentType, "text/plain; charset=utf-8");
  const std::pair<const char*, int> kRefused[] = {
      {"/files/../secret", 400},
      {"/files/sub/../../secret", 400},
      {"/files/%2e%2e/secret", 400},
      {"/files/..%2fsecret", 400},
      {"/files//secret", 400},
      {"/files/%00", 400},
      {"/files/", 400},
      {"/files/link", 403},
      {"/files/up/secret", 403},
      {"/files/none", 404},
      {"/files/sub", 404},
      {"/files/sub/%ff", 404},
      {"/../secret", 404},
      {"/reports.jsonl", 404},
  };
  for (const auto& [target, status] : kRefused) {
    const Reply refused = Ask("GET", target);
    EXPECT_EQ(refused.status, status) << target;
    EXPECT_FALSE(refused.stream) << target;
  }
}

TEST_F(BackendTest, MaxBodyHoldsForJsonAndObjects) {
  m_options.open = true;
  m_options.maxBody = 10;
  EXPECT_EQ(Ask("POST", "/echo", "\"12345678\"").status, 200);
  EXPECT_EQ(Ask("POST", "/echo", "\"123456789\"").status, 413);
  EXPECT_EQ(Ask("POST", "/report", Gzip(std::string(100, '1')), {"Content-Encoding: gzip"}).status,
            413);
  EXPECT_EQ(Ask("PUT", "/objects/a", "1234567890").status, 200);
  EXPECT_EQ(Ask("PUT", "/objects/a", "12345678901").status, 413);
}

TEST_F(BackendTest, AFixedStatusStopsEverythingButThePage) {
  m_options.status = 503;
  const Reply reply = Ask("PUT", "/objects/a", "content");
  EXPECT_EQ(reply.status, 503);
  EXPECT_GT(m_reads, 0);  // as a server that fails later would
  EXPECT_FALSE(lumtest::Exists(m_temp.Path("objects/a")));
  EXPECT_EQ(Ask("GET", "/nothing").status, 503);
  EXPECT_EQ(Ask("GET", "/").status, 200);
  EXPECT_EQ(Ask("GET", "/events").status, 200);
}

TEST_F(BackendTest, FaultsComeInTheSequenceOfRateAndSeed) {
  m_options.failRate = 0.5;
  m_options.seed = 3;
  Faults sequence(0.5, 3);
  for (int i = 0; i < 16; ++i) {
    Ask("GET", "/events");
    EXPECT_EQ(Ask("GET", "/echo").status, sequence.NextFails() ? 503 : 200) << i;
  }
}

TEST_F(BackendTest, EventsAreReportsUploadsAndRefusals) {
  lumtest::CaptureStderr log;
  Finish("PUT", "/objects/a", 200, NoteOf("upload", "", "a"), 7);
  Finish("GET", "/echo", 200, NoteOf("echo", ""));
  Finish("PUT", "/objects/a", 403, NoteOf("other", "<b>no</b>"));
  Finish("POST", "/report", 204, NoteOf("report", "{}"), 2);
  Finish("PUT", "/objects/a", 0, {}, 3);
  const LumJson::Value events = Events();
  ASSERT_EQ(events.Size(), 4u);
  EXPECT_EQ(events.At(0)["kind"].AsString(), "upload");
  EXPECT_EQ(events.At(0)["text"].AsString(), "a");
  EXPECT_EQ(events.At(0)["bytes"].AsInt64(), 7);
  EXPECT_EQ(events.At(1)["kind"].AsString(), "refusal");
  EXPECT_EQ(events.At(1)["status"].AsInt64(), 403);
  EXPECT_EQ(events.At(1)["path"].AsString(), "/objects/a");
  EXPECT_EQ(events.At(1)["text"].AsString(), "<b>no</b>");
  EXPECT_EQ(events.At(2)["kind"].AsString(), "report");
  EXPECT_EQ(events.At(3)["kind"].AsString(), "refusal");
  EXPECT_EQ(Parsed(Ask("GET", "/events?after=4"))["events"].Size(), 1u);
  EXPECT_EQ(Parsed(Ask("GET", "/events?after=5"))["last"].AsInt64(), 5);
  EXPECT_EQ(Ask("GET", "/events?after=x").status, 400);
  EXPECT_EQ(Ask("GET", "/events?after=-1").status, 400);
}

TEST_F(BackendTest, EventsAreTheLastOnes) {
  lumtest::CaptureStderr log;
  for (int i = 0; i < 250; ++i) {
    Finish("GET", "/nothing", 404, {});
  }
  const LumJson::Value events = Events();
  EXPECT_EQ(events.Size(), 200u);
  EXPECT_EQ(events.At(0)["id"].AsInt64(), 51);
}

TEST_F(BackendTest, LogsOneLineForEachRequest) {
  lumtest::CaptureStderr log;
  Finish("PUT", "/objects/a%0Ab?token=s3cret", 200, NoteOf("upload", "", "a"), 7, 123,
         {"X-Auth-Token: s3cret"});
  EXPECT_THAT(log.Text(),
              MatchesRegex("....-..-..T..:..:..Z PUT /objects/a%0Ab 200 in=7 out=123\n"));
  EXPECT_THAT(log.Text(), Not(HasSubstr("s3cret")));
  Finish("GET", "/events", 200, {}, 0, 5);  // not worth a line
  Exchange odd;
  odd.call.method = "G\x1B[2J";
  odd.call.path = "/\xC2\x9B\r\n fake";
  odd.reply.note.text = "re\nason";
  Await(Subject().Finished(std::move(odd)));
  const std::string text = log.Stop();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
  EXPECT_THAT(text,
              HasSubstr(" G\\x1b[2J /\\xc2\\x9b\\x0d\\x0a\\x20fake - in=0 out=0 (re\\x0aason)\n"));
}

TEST_F(BackendTest, AMalformedCallIsLoggedWithDashes) {
  lumtest::CaptureStderr log;
  Exchange exchange;
  exchange.status = 400;
  exchange.bytesOut = 9;
  exchange.reply = Problem(400, "malformed request");
  Await(Subject().Finished(std::move(exchange)));
  EXPECT_THAT(log.Stop(), HasSubstr("Z - - 400 in=0 out=9 (malformed request)\n"));
}

TEST_F(BackendTest, ForeignHostsAndOriginsAreRefused) {
  m_options.hosts = {"dev.example"};
  for (const char* line :
       {"Host: evil.example", "Host: localhost.evil.example:80", "Origin: http://evil.example",
        "Origin: null", "Origin: https://127.0.0.1.evil.example", "Host: 127.0.0.1x"}) {
    for (const char* target : {"/", "/echo", "/exchanges", "/report"}) {
      const Reply reply = Ask("GET", target, "", {line});
      EXPECT_EQ(reply.status, 403) << line;
    }
  }
  EXPECT_EQ(ErrorOf(Ask("GET", "/", "", {"Host: evil.example:80"}).body),
            "'evil.example' is a foreign host; --host evil.example allows it");
  for (const char* line : {"Host: 192.0.2.1:80", "Host: [::1]:80", "Host: LOCALHOST:1",
                           "Host:", "Host: dev.example:80", "Origin: http://DEV.example",
                           "Origin: http://localhost:80", "Origin: https://[::1]:80"}) {
    EXPECT_EQ(Ask("GET", "/echo", "", {line}).status, 200) << line;
  }
}

}  // namespace
