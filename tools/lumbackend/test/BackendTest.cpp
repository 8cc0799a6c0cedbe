// Routes, tokens, echo, log addresses, misbehaviour, events and the access log.
#include "BackendFixture.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <regex>
#include <tuple>

namespace lumtest {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

class BackendTest : public BackendFixture {};

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
      Parsed(Ask("GET", "/echo?a=%20b?c", "",
                 {"Host: localhost", "X-Auth-Token: t0ken", "authorization: Basic abc",
                  "x-zun-security-token: sec", "Cookie: c", "Proxy-Authorization: p", "X: \xFF",
                  "X-Auth-Token:"}));
  EXPECT_EQ(
      echo.JsonValueToString(),
      R"({"method":"GET","path":"/echo","query":"a=%20b?c","headers":[)"
      R"({"name":"Host","value":"localhost"},{"name":"X-Auth-Token","value":"***"},)"
      R"({"name":"authorization","value":"***"},{"name":"x-zun-security-token","value":"***"},)"
      R"({"name":"Cookie","value":"***"},{"name":"Proxy-Authorization","value":"***"},)"
      R"({"name":"X","value":"\\xff"},{"name":"X-Auth-Token","value":""}],)"
      R"("scheme":"http","clientCertificate":null})");
}

// --- Tokens.

class AccessTest : public BackendTest {
 protected:
  AccessTest() { m_options.open = false; }

  std::string NewToken() { return Parsed(Ask("POST", "/token", "{}"))["token"].AsString(); }

  int ReportWith(const std::string& token) {
    return Ask("POST", "/report", "1", {"X-Auth-Token: " + token}).status;
  }
};

TEST_F(AccessTest, TokensAreHandedOutAndRefreshed) {
  m_options.tokenLifetime = 100;
  const std::string first = NewToken();
  const LumJson::Value answer = Parsed(Ask("PUT", "/token", "{}", {"X-Auth-Token: " + first}));
  EXPECT_EQ(answer["expiresIn"].AsInt64(), 100);
  EXPECT_EQ(ReportWith(answer["token"].AsString()), 200);
  EXPECT_EQ(ReportWith(first), 401);
}

TEST_F(AccessTest, ARefreshThatFailsKeepsTheToken) {
  const std::string token = NewToken();
  EXPECT_EQ(Ask("PUT", "/token", "{", {"X-Auth-Token: " + token}).status, 400);
  EXPECT_EQ(ReportWith(token), 200);
}

TEST_F(AccessTest, ARequestForATokenIsAnObject) {
  for (const char* body : {"", "null", "[]", "\"text\"", "{"}) {
    EXPECT_EQ(Ask("POST", "/token", body).status, 400) << body;
  }
}

TEST_F(AccessTest, TokensAreCheckedBeforeTheBodyIsRead) {
  const std::pair<const char*, const char*> kTargets[] = {
      {"POST", "/report"}, {"PUT", "/token"}, {"GET", "/log-address?access_id=a"}};
  const std::pair<const char*, const char*> kLines[] = {
      {"X: y", "no token in X-Auth-Token"},
      {"X-Auth-Token:", "no token in X-Auth-Token"},
      {"X-Auth-Token: wrong", "the token is unknown"}};
  for (const auto& [method, target] : kTargets) {
    for (const auto& [line, problem] : kLines) {
      FakeBody body("1");
      const Reply reply = Ask(method, target, body, {line});
      EXPECT_EQ(reply.status, 401) << target;
      EXPECT_EQ(ErrorOf(reply), problem);
      EXPECT_EQ(body.given, 0u);
      ASSERT_EQ(reply.headers.size(), 1u);
      EXPECT_EQ(reply.headers[0].name, "WWW-Authenticate");
    }
  }
}

// --- Log addresses, files and objects.

TEST_F(BackendTest, ValuesOfALogAddressAreTakenAsTheyStand) {
  const LumJson::Value answer =
      Json("/log-address?v=1?access_id=a=%41&file_name=x&y=1%?\xC3\xA9.log");
  EXPECT_EQ(answer["accessId"].AsString(), "a=%41");
  EXPECT_EQ(answer["fileName"].AsString(), "x&y=1%?\xC3\xA9.log");
  EXPECT_EQ(answer["url"].AsString(),
            "http://127.0.0.1:8080/objects/logs/x%26y%3D1%25%3F%C3%A9.log");
}

TEST_F(BackendTest, ALogAddressNeedsBothValues) {
  for (const char* query :
       {"", "?access_id=a", "?file_name=a", "?file_name=a&access_id=b", "?access_id=&file_name=b",
        "?access_id=a&file_name=", "?access_id=a&file_name=..", "?access_id=a&file_name=b/c"}) {
    EXPECT_EQ(Ask("GET", std::string("/log-address") + query).status, 400) << query;
  }
}

TEST_F(BackendTest, SendsFilesAndObjectsAndNothingElse) {
  constexpr char kOdd[] = "the path holds an empty name, '.', '..' or a name that is too long";
  constexpr char kLinked[] = "symbolic links are not followed";
  constexpr char kNone[] = "no such file";
  constexpr char kNoFile[] = "not a file";
  Subject();
  m_temp.Write("secret", "secret");
  for (const std::string directory : {"files", "objects"}) {
    const std::string start = "/" + directory;
    const auto link = [&](const std::string& target, const std::string& name) {
      EXPECT_EQ(::symlink(target.c_str(), m_temp.Path(directory + "/" + name).c_str()), 0);
    };
    link(m_temp.Path("secret"), "link");
    link(m_temp.Path(), "up");
    link("sub", "inside");
    EXPECT_EQ(::mkfifo(m_temp.Path(directory + "/pipe").c_str(), 0600), 0);
    m_temp.MakeDir(directory + "/sub");
    m_temp.Write(directory + "/sub/a.txt", "text");
    const Reply reply = Ask("GET", start + "/sub/a.txt");
    EXPECT_EQ(reply.length, 4u);
    EXPECT_EQ(Streamed(reply), "text");
    const std::string longName(256, 'a');
    const std::tuple<std::string, int, const char*> kRefused[] = {
        {"/../secret", 400, kOdd},
        {"/sub/../../secret", 400, kOdd},
        {"/%2e%2e/secret", 400, kOdd},
        {"/..%2fsecret", 400, kOdd},
        {"/.", 400, kOdd},
        {"//secret", 400, kOdd},
        {"/a%00b", 400, kOdd},
        {"/", 400, kOdd},
        {"/" + longName, 400, kOdd},
        {"/" + longName + "/a", 400, kOdd},
        {"/" + longName.substr(1), 404, kNone},
        {"/...", 404, kNone},
        {"/link", 403, kLinked},
        {"/up/secret", 403, kLinked},
        {"/inside/a.txt", 403, kLinked},
        {"/none", 404, kNone},
        {"/none/a.txt", 404, kNone},
        {"/sub/a.txt/b", 404, kNone},
        {"/sub/%ff", 404, kNone},
        {"/sub", 404, kNoFile},
        {"/pipe", 404, kNoFile},
    };
    for (const auto& [target, status, error] : kRefused) {
      const Reply refused = Ask("GET", start + target);
      EXPECT_EQ(refused.status, status) << start << target;
      EXPECT_EQ(ErrorOf(refused), error) << start << target;
      EXPECT_FALSE(refused.stream) << start << target;
    }
    EXPECT_FALSE(Exists(m_temp.Path(directory + "/none")));
  }
  m_temp.Write("objects/.upload-1", "half");
  for (const char* target : {"/objects/.upload-1", "/../secret", "/reports.jsonl"}) {
    EXPECT_EQ(Ask("GET", target).status, 404) << target;
  }
}

TEST_F(BackendTest, TheNameOfAFileSaysItsType) {
  const std::pair<const char*, const char*> kTypes[] = {
      {"/objects/a.txt", "text/plain; charset=utf-8"},
      {"/objects/a.json", "application/json"},
      {"/objects/a.zip", "application/zip"},
      {"/objects/a.gz", "application/gzip"},
      {"/objects/a.mp4", "video/mp4"},
      // What somebody has uploaded is not for a browser to run.
      {"/objects/a.html", "application/octet-stream"},
      {"/objects/a", "application/octet-stream"}};
  for (const auto& [target, type] : kTypes) {
    Ask("PUT", target, "content");
    EXPECT_EQ(Ask("GET", target).contentType, type);
  }
}

TEST_F(BackendTest, TheRootItselfMayBeALink) {
  m_temp.MakeDir("root");
  m_options.root = m_temp.Path("link");
  ASSERT_EQ(::symlink("root", m_options.root.c_str()), 0);
  EXPECT_EQ(Ask("PUT", "/objects/a", "content").status, 200);
  EXPECT_TRUE(Exists(m_temp.Path("root/objects/a")));
}

// --- Misbehaviour, events and the access log.

TEST_F(BackendTest, FaultsComeInTheSequenceOfRateAndSeed) {
  struct Faults {
    double rate;
    std::uint64_t seed;
    const char* sequence;  // callers write these into tests of their own
  };
  for (const Faults& faults : {Faults{0.5, 0, "x.x..x.x..x..xxx"},
                               {0.5, 1, "xxxxx.xx..x..xxx"},
                               {0.3, 7, "..x.xx..x......."},
                               {1, 7, "xxxxxxxxxxxxxxxx"}}) {
    m_options.failRate = faults.rate;
    m_options.seed = faults.seed;
    Restart();
    std::string sequence;
    for (int i = 0; i < 16; ++i) {
      EXPECT_EQ(Ask("GET", "/events").status, 200);
      sequence += Ask("GET", "/echo").status == 503 ? 'x' : '.';
    }
    EXPECT_EQ(sequence, faults.sequence);
  }
}

TEST_F(BackendTest, EventsAreReportsUploadsAndRefusals) {
  Ask("PUT", "/objects/a", "content");
  Ask("GET", "/echo");
  Ask("PUT", "/objects/..", "x");
  Ask("POST", "/report?status=204", "{}");
  Await(Subject().Finished({}));  // there was no answer
  const std::string events = Json("/events")["events"].JsonValueToString();
  EXPECT_EQ(
      std::regex_replace(events, std::regex("\"time\":[0-9]+,"), ""),
      R"([{"id":1,"kind":"upload","method":"PUT","path":"/objects/a","text":"a","status":200,)"
      R"("bytes":7},{"id":3,"kind":"refusal","method":"PUT","path":"/objects/..",)"
      R"("text":"the path names no object","status":400,"bytes":0},{"id":4,"kind":"report",)"
      R"("method":"POST","path":"/report","text":"{}","status":204,"bytes":2},)"
      R"({"id":5,"kind":"refusal","method":"","path":"","text":"","status":0,"bytes":0}])");
  EXPECT_EQ(Json("/events?after=4")["events"].Size(), 1u);
  EXPECT_EQ(Json("/events?after=5")["last"].AsInt64(), 5);
  Json("/events?after=x", 400);
  Json("/events?after=-1", 400);
}

TEST_F(BackendTest, EventsAreTheLastOnes) {
  for (int i = 0; i < 252; ++i) {
    Ask("GET", "/nothing");
  }
  const LumJson::Value events = Json("/events")["events"];
  EXPECT_EQ(events.Size(), 200u);
  EXPECT_EQ(events.At(0)["id"].AsInt64(), 53);
}

TEST_F(BackendTest, LogsOneLineForEachRequest) {
  Ask("PUT", "/objects/a%0Ab?token=s3cret", "content", {"X-Auth-Token: s3cret"});
  EXPECT_THAT(m_log.Text(),
              MatchesRegex("....-..-..T..:..:..Z PUT /objects/a%0Ab 200 in=7 out=123\n"));
  Ask("GET", "/events");  // not worth a line
  Exchange odd;
  odd.call.method = "G\x1B[2J";
  odd.call.path = "/\xC2\x9B\r\n fake";
  odd.reply.note.text = "re\nason";
  Await(Subject().Finished(std::move(odd)));
  const std::string text = m_log.Stop();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
  EXPECT_THAT(text,
              HasSubstr(" G\\x1b[2J /\\xc2\\x9b\\x0d\\x0a\\x20fake - in=0 out=0 (re\\x0aason)\n"));
}

TEST_F(BackendTest, ForeignHostsAndOriginsAreRefused) {
  m_options.hosts = {"dev.example"};
  for (const char* line :
       {"Host: evil.example", "Host: localhost.evil.example:80", "Origin: http://evil.example",
        "Origin: null", "Origin: https://127.0.0.1.evil.example", "Host: 127.0.0.1x"}) {
    for (const char* target : {"/", "/echo", "/exchanges", "/report"}) {
      EXPECT_EQ(Ask("GET", target, "", {line}).status, 403) << line;
    }
  }
  EXPECT_EQ(ErrorOf(Ask("GET", "/", "", {"Host: evil.example:80"})),
            "'evil.example' is a foreign host; --host evil.example allows it");
  for (const char* line : {"Host: 192.0.2.1:80", "Host: [::1]:80", "Host: LOCALHOST:1",
                           "Host:", "Host: dev.example:80", "Origin: http://DEV.example",
                           "Origin: http://localhost:80", "Origin: https://[::1]:80"}) {
    EXPECT_EQ(Ask("GET", "/echo", "", {line}).status, 200) << line;
  }
}

}  // namespace
}  // namespace lumtest
