// token, refresh-token, report, log-address, service-get and service-post.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumcurl.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

class Service : public testing::Test {
 protected:
  Service()
      : m_token(m_directory.Secret("token", "t0ken-value\n")),
        m_json(m_directory.Secret("json", R"({"a":1,"accessId":"robot-7"})")) {}

  // The request of `arguments`, run with the server's URL behind them; `reply` is what it gets.
  WireRequest Sent(const WireReply& reply, Words arguments, int exitStatus = 0) {
    m_server.Script(reply);
    arguments.push_back(m_server.Url("/p"));
    m_result = Lumcurl(arguments, m_options);
    EXPECT_EQ(m_result.exitStatus, exitStatus) << m_result.Describe();
    return m_server.Requests().back();
  }

  SecretDir m_directory;
  std::string m_token;
  std::string m_json;
  WireServer m_server;
  ProcessOptions m_options;
  ProcessResult m_result;
};

const char kStyled[] = "{\n    \"a\": 1,\n    \"accessId\": \"robot-7\"\n}\n";

TEST_F(Service, TokenPostsTheRequestAndPrintsTheAnswer) {
  const WireRequest request =
      Sent(JsonReply(R"({"token":"new"})"), {"token", "--data-file", m_json});
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.body, kStyled);
  EXPECT_EQ(m_result.out, "{\n    \"token\": \"new\"\n}\n");
  EXPECT_THAT(m_result.err, IsEmpty());
}

TEST_F(Service, TokenPrintsTheJsonThatComesWith200) {
  const struct {
    WireReply reply;
    int exitStatus;
    const char* out;
    const char* err;
  } kCases[] = {
      {JsonReply("null"), 0, "null\n", ""},
      {StatusReply(204), 1, "", "the server answered 204"},
      {StatusReply(200, "<p>"), 1, "",
       "the answer is not JSON; check the URL: another service may answer\n"
       "lumcurl: the reply: <p>\n"},
      {JsonReply("{\"error\":\"no \\u001b[31m user\"}", 401), 4, "",
       "the reply: {\"error\":\"no \\u001b[31m user\"}"},
      {WireReply(WireHead(200, {"Content-Length: 50"}) + "{}").Close(), 6, "", "connection broke"}};
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.err);
    Sent(row.reply, {"token", "--data-file", m_json}, row.exitStatus);
    EXPECT_EQ(m_result.out, row.out);
    EXPECT_THAT(m_result.err, HasSubstr(row.err));
  }
}

TEST_F(Service, RefreshTokenPutsWithTheToken) {
  const WireRequest request =
      Sent(JsonReply("{}"), {"refresh-token", "--token-file", m_token, "--data-file", m_json});
  EXPECT_EQ(request.method, "PUT");
  EXPECT_EQ(request.Header("X-Auth-Token"), "t0ken-value");
  EXPECT_EQ(request.body, kStyled);
}

TEST_F(Service, TokenComesFromTheEnvironment) {
  m_options.environment = {"LUMCURL_TOKEN=from-environment"};
  EXPECT_EQ(Sent(JsonReply("{}"), {"refresh-token", "--data-file", m_json}).Header("X-Auth-Token"),
            "from-environment");
  EXPECT_EQ(Sent(StatusReply(200), {"report", "--token-file", m_token, "-d", "{}"})
                .Header("X-Auth-Token"),
            "t0ken-value");
  m_options.environment = {"LUMCURL_TOKEN=a\nb"};
  EXPECT_THAT(Lumcurl({"report", "-d", "{}", m_server.Url()}, m_options),
              Ends(2, HasSubstr("LUMCURL_TOKEN holds a line break")));
}

TEST_F(Service, ReportSendsTheStyledDocument) {
  const WireRequest request =
      Sent(StatusReply(204), {"report", "--token-file", m_token, "--data-file", m_json});
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.Header("Content-Type"), "application/json");
  EXPECT_EQ(request.Header("X-Auth-Token"), "t0ken-value");
  EXPECT_EQ(request.body, kStyled);
  EXPECT_THAT(m_result.out, IsEmpty());
  EXPECT_THAT(m_result.err, IsEmpty());
}

TEST_F(Service, ReportAddsTheTopic) {
  EXPECT_THAT(Sent(StatusReply(200), {"report", "--topic", "t 1", "--data-file", m_json}).body,
              HasSubstr("\"topic_name\": \"t 1\""));
}

TEST_F(Service, ReportTakesItsTimeLimit) {
  Sent(WireReply().Stall(), {"report", "--timeout", "1", "--data-file", m_json}, 7);
  EXPECT_THAT(m_result.err, HasSubstr("the limit is 1 s"));
}

TEST_F(Service, ReportSendsDocumentsThatAreNoObject) {
  for (const char* document : {"[]", "\"text\"", "null", "12"}) {
    EXPECT_EQ(Sent(StatusReply(200), {"report", "-d", document}).body,
              std::string(document) + "\n");
  }
}

// What gzip makes of the body.
std::string Unpacked(const std::string& body) {
  ProcessOptions options;
  options.input = body;
  const ProcessResult result = RunCommand({"gzip", "-dc"}, options);
  EXPECT_TRUE(result.Succeeded()) << result.Describe();
  return result.out;
}

TEST_F(Service, GzipReportTakesSenderAndTopicFromOptionsOrTheDocument) {
  const std::string topic = "\"topic_name\": \"t\"";
  for (const auto& [options, sender] : {std::pair<Words, std::string>{{}, "robot-7"},
                                        {{"--topic", "t"}, "robot-7"},
                                        {{"--topic", "t", "--access-id", "r8"}, "r8"}}) {
    const Words words = Joined({"report", "--gzip", "--data-file", m_json}, options);
    const WireRequest request = Sent(StatusReply(200), words);
    EXPECT_EQ(request.Header("Content-Encoding"), "gzip");
    EXPECT_EQ(request.Header("X-ORV-ACCESS-ID"), sender);
    EXPECT_THAT(Unpacked(request.body),
                options.empty() ? testing::Matcher<std::string>(kStyled) : HasSubstr(topic));
  }
}

TEST_F(Service, GzipReportWarnsOfAMissingSender) {
  Sent(StatusReply(200), {"report", "--gzip", "-d", R"({"text":"long enough to be compressed"})"});
  EXPECT_THAT(m_result.err, HasSubstr("warning: the document has no accessId"));
}

TEST_F(Service, GzipReportExplainsADocumentTooSmall) {
  EXPECT_THAT(Lumcurl({"report", "--gzip", "-d", "[]", m_server.Url()}),
              Ends(1, HasSubstr("goes without --gzip")));
  EXPECT_EQ(m_server.RequestCount(), 0u);
}

TEST_F(Service, ReportShowsTheReplyThatRefuses) {
  Sent(StatusReply(503, "come back later"), {"report", "--gzip", "--data-file", m_json}, 5);
  EXPECT_THAT(m_result.err, HasSubstr("the reply: come back later\n"));
  Sent(StatusReply(503, "later still"), {"report", "--data-file", m_json}, 5);
  EXPECT_THAT(m_result.err, HasSubstr("the reply: later still\n"));
}

TEST_F(Service, ReportThatBreaksOffAfterItsStatusIsDoneWithAWarning) {
  Sent(WireReply(WireHead(200, {"Content-Length: 50"}) + "{}").Close(),
       {"report", "--data-file", m_json});
  EXPECT_THAT(m_result.err, HasSubstr("warning: "));
  EXPECT_THAT(m_result.err, HasSubstr("broke after the answer"));
}

TEST_F(Service, ReportFailsForA201) {
  Sent(StatusReply(201), {"report", "--data-file", m_json}, 1);
  EXPECT_THAT(m_result.err, HasSubstr("does not count as done"));
}

TEST_F(Service, RefusesATokenWithALineBreakBeforeAnythingIsSent) {
  for (const std::string& content : {std::string("one\r\nX-Evil: two"), std::string("one\rEvil"),
                                     std::string("Evil\n\n"), std::string("one\0Evil", 8)}) {
    const std::string token = m_directory.Secret("bad", content);
    for (const Words& command :
         {Words{"report", "-d", "{}"}, Words{"refresh-token", "--data-file", m_json},
          Words{"log-address", "--access-id", "a", "--file-name", "f"}}) {
      EXPECT_THAT(Lumcurl(Joined(command, {"--token-file", token, m_server.Url()})),
                  Ends(2, AllOf(HasSubstr(token + " holds a line break"), Not(HasSubstr("Evil")))));
    }
  }
  EXPECT_EQ(m_server.Connections().size(), 0u);
}

TEST_F(Service, SendsTokensWithoutOneLineBreak) {
  const std::string large(50000, 't');
  for (const auto& [content, sent] : {std::pair<std::string, std::string>{"", "X-Auth-Token:"},
                                      {large, "X-Auth-Token: " + large},
                                      {"abc\r\n", "X-Auth-Token: abc"},
                                      {" a b ", "X-Auth-Token:  a b "}}) {
    const std::string file = m_directory.Secret("file", content);
    const Words command = {"report", "-d", "{}", "--token-file", file};
    EXPECT_THAT(Sent(StatusReply(200), command).headerLines, testing::Contains(sent));
  }
}

TEST_F(Service, NamesFilesThatAreMissing) {
  for (const Words& words : {Words{"report", "-d", "{}", "--token-file", "/none", m_server.Url()},
                             Words{"service-get", "-H", "@/none", m_server.Url()}}) {
    EXPECT_THAT(Lumcurl(words), Ends(9, HasSubstr("cannot read '/none': No such file")));
  }
}

TEST_F(Service, LogAddressAsksWithItsQuery) {
  const WireRequest request = Sent(
      JsonReply(R"({"url":"http://h/o"})"),
      {"log-address", "--access-id", "a1", "--file-name", "x%20y.log", "--token-file", m_token});
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.target, "/p?access_id=a1&file_name=x%20y.log");
  EXPECT_EQ(request.Header("X-Auth-Token"), "t0ken-value");
  EXPECT_EQ(m_result.out, "{\n    \"url\": \"http://h/o\"\n}\n");
}

TEST_F(Service, ServiceGetSendsNothingButTheLinesGiven) {
  const std::string lines = m_directory.Write("lines", "A: 1\r\n\nEmpty: \n");
  const WireRequest request =
      Sent(JsonReply("[]"), {"service-get", "-H", "B: 2", "-H", "@" + lines, "-H", "C:3"});
  EXPECT_THAT(request.headerLines,
              ElementsAre(StartsWith("Host: "), "Accept: */*", "B: 2", "A: 1", "Empty:", "C:3"));
  EXPECT_EQ(m_result.out, "[]\n");
  EXPECT_THAT(m_result.err, IsEmpty());
}

TEST_F(Service, RefusesAHeaderLineWithAZeroByte) {
  const std::string lines = m_directory.Write("lines", std::string("A: \0", 4));
  EXPECT_THAT(Lumcurl({"service-get", "-H", "@" + lines, m_server.Url()}),
              Ends(2, HasSubstr("a zero byte; nothing was sent")));
}

TEST_F(Service, ServicePostSendsTheBodyAsItStands) {
  const WireRequest request =
      Sent(JsonReply("[]"), {"service-post", "-d", "{ }", "-H", "Content-Type: x/y"});
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.body, "{ }");
  EXPECT_EQ(request.Header("Content-Type"), "x/y");
}

TEST_F(Service, LeavesByTheInterfaceAskedFor) {
  Sent(JsonReply("{}"), {"service-get", "--interface", "lo"});
  Words arguments = {"service-get", "--interface", "none9", m_server.Url()};
  EXPECT_THAT(Lumcurl(arguments), Ends(6, HasSubstr("check --interface: 'ip link'")));
}

TEST_F(Service, WarnsOfAMacThatNoInterfaceHas) {
  Sent(JsonReply("{}"), {"service-get", "--mac", "02:00:5e:10:00:01"});
  EXPECT_EQ(m_result.err,
            "lumcurl: warning: no interface has the address given with --mac: the system chose "
            "one\n");
}

}  // namespace
}  // namespace lumtest
