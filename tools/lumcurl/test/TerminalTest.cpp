// What a terminal gets to see: progress, and nothing that could steer it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <regex>

#include "Lumcurl.h"
#include "support/Files.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

using testing::ContainsRegex;

class Terminal : public testing::Test {
 protected:
  // What lumcurl's `words` show until they end with `exitStatus`.
  static std::string Shown(const Words& words, int exitStatus = 0,
                           const Words& environment = {"NO_COLOR=1"}) {
    OnTerminal terminal(LumcurlCommand(words), environment);
    EXPECT_EQ(terminal.Wait(), exitStatus);
    return terminal.Shown();
  }

  WireServer m_server;
  TempDir m_directory;
};

TEST_F(Terminal, ShowsTheProgressOfADownload) {
  WireGate gate;
  m_server.Script(WireReply(WireHead(200, {"Content-Length: 3000000"}))
                      .Send(GeneratedBytes(0, 1'000'000))
                      .Wait(gate)
                      .Send(GeneratedBytes(1'000'000, 2'000'000)));
  OnTerminal terminal(LumcurlCommand({"download", m_server.Url(), m_directory.Path("f")}));
  EXPECT_TRUE(terminal.WaitFor("/s")) << terminal.Shown();
  gate.Release();
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_THAT(terminal.Shown(), HasSubstr("\r2.9 MiB, "));
  EXPECT_EQ(terminal.Shown().substr(terminal.Shown().size() - 2), "\r\n");
  EXPECT_TRUE(ReadFile(m_directory.Path("f")) == GeneratedBytes(0, 3'000'000));
}

TEST_F(Terminal, ShowsNoProgressWhenQuiet) {
  m_server.Script(GeneratedReply(3'000'000));
  EXPECT_EQ(Shown({"download", "-q", m_server.Url(), m_directory.Path("f")}), "");
}

TEST_F(Terminal, ShowsTheProgressOfAnUpload) {
  const std::string content = GeneratedBytes(0, 3'000'000);
  m_server.Script(StatusReply(200, "stored"));
  EXPECT_THAT(Shown({"upload-video", m_server.Url(), m_directory.Write("f", content)}),
              AllOf(HasSubstr("\r2.9 MiB of 2.9 MiB, 100 %"), HasSubstr("stored\r\n")));
  EXPECT_TRUE(m_server.Request(0).body == content);
}

// How many lines of progress were shown.
std::ptrdiff_t Updates(const std::string& shown) {
  return std::count(shown.begin(), shown.end(), '%');
}

TEST_F(Terminal, CountsWhatHasLeftForTheServerAndNotWhatWasRead) {
  WireOptions options;
  options.receiveBuffer = 4096;
  WireServer server(options);
  WireGate gate;
  server.Script(WireReply()
                    .At(WireStart::kHead)
                    .Send(WireContinue())
                    .Wait(gate)
                    .ReadBody()
                    .Send(WireAnswer(200)));
  OnTerminal terminal(LumcurlCommand(
      {"upload-video", server.Url(), m_directory.Write("f", GeneratedBytes(0, 3'000'000))}));
  ASSERT_TRUE(gate.WaitReached());
  const std::ptrdiff_t before = Updates(terminal.Shown());
  ASSERT_TRUE(terminal.WaitUntil(
      [before](const std::string& shown) { return Updates(shown) > before + 5; }));
  // The server takes a few kilobytes; libcurl reads 64 KiB at a time.
  const std::string shown = terminal.Shown();
  EXPECT_THAT(shown, ContainsRegex("\r[0-9.]+ (B|KiB) of 2.9 MiB, [01] %, [0-9.]+ (B|KiB)/s, "));
  EXPECT_THAT(shown, Not(ContainsRegex(", ([2-9]|[0-9][0-9]+) %")));
  gate.Release();
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_THAT(terminal.Shown(), HasSubstr("\r2.9 MiB of 2.9 MiB, 100 %"));
}

TEST_F(Terminal, ShowsTheTimeThatIsLeft) {
  m_server.Script(StatusReply(200));
  OnTerminal terminal(LumcurlCommand({"upload-video", "--limit-rate", "100K", m_server.Url(),
                                      m_directory.Write("f", GeneratedBytes(0, 3'000'000))}));
  EXPECT_TRUE(terminal.WaitUntil([](const std::string& shown) {
    return std::regex_search(shown, std::regex("%, [0-9.]+ KiB/s, [0-9]+ s left"));
  })) << terminal.Shown();
  EXPECT_EQ(terminal.Interrupt(), SIGINT);
}

TEST_F(Terminal, ShowsTheProgressOfAnArchiveThatIsMadeMeanwhile) {
  m_directory.Write("dir/member", "m");
  m_server.Script(StatusReply(200));
  const std::string shown = Shown({"upload-dir", m_server.Url(), m_directory.Path("dir")});
  const std::string size = std::to_string(m_server.Request(0).bodyBytes) + " B";
  EXPECT_THAT(shown, HasSubstr("\r" + size + " of " + size + ", 100 %"));
  EXPECT_THAT(MembersOf(m_server.Request(0).body), ElementsAre("dir/", "dir/member"));
  EXPECT_FALSE(Exists(m_directory.Path("dir.tar.gz")));
}

TEST_F(Terminal, FailsAsElsewhere) {
  m_server.Script(StatusReply(403, "no"));
  EXPECT_THAT(Shown({"upload-log", m_server.Url(), m_directory.Write("f", "x")}, 4),
              HasSubstr("\nlumcurl: upload-log " + m_server.Url()));
}

TEST_F(Terminal, ShowsADocumentAsSafeText) {
  m_server.Script(
      JsonReply("{\"a\":\"\xC2\x9B"
                "31m\x7F\xE2\x80\xAE\"}"));
  EXPECT_EQ(Shown({"get", m_server.Url()}),
            "{\r\n    \"a\": \"\\xc2\\x9b31m\\x7f\\xe2\\x80\\xae\"\r\n}\r\n");
}

TEST_F(Terminal, ShowsTheReplyToAnUploadAsSafeText) {
  const std::string file = m_directory.Write("f", "x");
  m_server.Script(StatusReply(200, "\x1b[31mred\n\ttab \xE2\x80"))
      .Script(StatusReply(200, "\x1b[31mred"));
  EXPECT_EQ(Shown({"upload-video", "-q", m_server.Url(), file}),
            "\\x1b[31mred\r\n\ttab \\xe2\\x80\r\n");
  // Elsewhere data is data.
  EXPECT_EQ(Lumcurl({"upload-video", m_server.Url(), file}).out, "\x1b[31mred");
}

TEST_F(Terminal, KeepsDataWholeWhereOnlyMessagesGoToIt) {
  m_server.Script(StatusReply(200, "\x1b[31mred"));
  const std::string file = m_directory.Write("f", "x");
  OnTerminal terminal({"sh", "-c",
                       ShellWords(LumcurlCommand({"upload-video", m_server.Url(), file})) + " > '" +
                           m_directory.Path("out") + "'"});
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_EQ(ReadFile(m_directory.Path("out")), "\x1b[31mred");
  EXPECT_THAT(terminal.Shown(), AllOf(HasSubstr("1 B of 1 B, 100 %"), Not(HasSubstr("red"))));
}

TEST_F(Terminal, ShowsMessagesAsSafeText) {
  m_server.Script(StatusReply(200, "<\x1b]0;title\a\n\xE2\x80\xA8>"));
  EXPECT_THAT(Shown({"get", m_server.Url()}, 1),
              HasSubstr("the reply: <\\x1b]0;title\\x07\\x0a\\xe2\\x80\\xa8>\r\n"));
}

constexpr char kColours[] = "NO_COLOR=";  // not set, as far as anybody reads it

TEST_F(Terminal, HasColoursForJsonAndForMessages) {
  m_server.Script(JsonReply(R"({"a":1})", 404));
  EXPECT_THAT(Shown({"get", m_server.Url()}, 4, {kColours}),
              AllOf(HasSubstr("\x1b[1;34m\"a\"\x1b[0m: \x1b[36m1\x1b[0m"),
                    HasSubstr("\x1b[1;31mlumcurl:\x1b[0m get http")));
  EXPECT_THAT(Shown({"get"}, 2, {kColours}),
              HasSubstr("\x1b[1;31mlumcurl:\x1b[0m get: URL is required"));
}

TEST_F(Terminal, HasNoColoursWhereNoneAreWanted) {
  m_server.SetHandler([](const WireRequest&) { return JsonReply(R"({"a":1})", 404); });
  for (const Words& environment :
       {Words{"NO_COLOR=1"}, Words{kColours, "TERM=dumb"}, Words{kColours, "TERM="}}) {
    EXPECT_THAT(Shown({"get", m_server.Url()}, 4, environment), Not(HasSubstr("\x1b")));
  }
  for (const Words& option : {Words{"--color", "never"}, Words{"--color=never"}}) {
    Words words = Joined({"get"}, option);
    EXPECT_THAT(Shown(words, 2, {kColours}), Not(HasSubstr("\x1b")));
    words.push_back(m_server.Url());
    EXPECT_THAT(Shown(words, 4, {kColours}), Not(HasSubstr("\x1b")));
  }
  ProcessOptions options;
  options.environment = {"NO_COLOR=1"};
  EXPECT_THAT(Lumcurl({"get", "--color", "always", m_server.Url()}, options).out,
              HasSubstr("\x1b[36m1"));
  EXPECT_THAT(Lumcurl({"get", m_server.Url()}).out, Not(HasSubstr("\x1b")));
}

}  // namespace
}  // namespace lumtest
