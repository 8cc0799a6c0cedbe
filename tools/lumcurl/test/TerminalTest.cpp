// What a terminal gets to see: progress, and nothing that could steer it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumcurl.h"
#include "support/Files.h"
#include "wire/Digest.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(Terminal, ShowsTheProgressOfADownload) {
  WireServer server;
  TempDir directory;
  WireGate gate;
  server.Script(WireReply(WireHead(200, {"Content-Length: 3000000"}))
                    .SendGenerated(1'000'000)
                    .Wait(gate)
                    .Send(GeneratedBytes(1'000'000, 2'000'000)));
  OnTerminal terminal(LumcurlCommand({"download", server.Url(), directory.Path("f")}));
  EXPECT_TRUE(terminal.WaitFor("/s")) << terminal.Shown();
  gate.Release();
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_THAT(terminal.Shown(), HasSubstr("\r2.9 MiB, "));
  EXPECT_EQ(terminal.Shown().substr(terminal.Shown().size() - 2), "\r\n");
  EXPECT_EQ(Sha256OfFile(directory.Path("f")), GeneratedSha256(3'000'000));
}

TEST(Terminal, ShowsNoProgressWhenQuiet) {
  WireServer server;
  TempDir directory;
  server.Script(GeneratedReply(3'000'000));
  OnTerminal terminal(LumcurlCommand({"download", "-q", server.Url(), directory.Path("f")}));
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_EQ(terminal.Shown(), "");
}

TEST(Terminal, ShowsTheProgressOfAnUpload) {
  WireServer server;
  TempDir directory;
  const std::string content = GeneratedBytes(0, 3'000'000);
  server.Script(StatusReply(200, "stored"));
  OnTerminal terminal(
      LumcurlCommand({"upload-video", server.Url(), directory.Write("f", content)}));
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_THAT(terminal.Shown(), AllOf(HasSubstr("\r2.9 MiB, "), HasSubstr("stored\r\n")));
  EXPECT_EQ(server.Request(0).bodySha256, GeneratedSha256(3'000'000));
}

TEST(Terminal, ShowsTheProgressOfAnArchiveThatIsMadeMeanwhile) {
  WireServer server;
  TempDir directory;
  directory.MakeDir("dir");
  directory.Write("dir/member", "m");
  server.Script(StatusReply(200));
  OnTerminal terminal(LumcurlCommand({"upload-dir", server.Url(), directory.Path("dir")}));
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_THAT(terminal.Shown(),
              HasSubstr("\r" + std::to_string(server.Request(0).bodyBytes) + " B, "));
  ProcessOptions options;
  options.input = server.Request(0).body;
  EXPECT_EQ(RunCommand({"tar", "-tzf", "-"}, options).out, "dir/\ndir/member\n");
  EXPECT_FALSE(Exists(directory.Path("dir.tar.gz")));
}

TEST(Terminal, FailsAsElsewhere) {
  WireServer server;
  TempDir directory;
  server.Script(StatusReply(403, "no"));
  OnTerminal terminal(LumcurlCommand({"upload-log", server.Url(), directory.Write("f", "x")}));
  EXPECT_EQ(terminal.Wait(), 4);
  EXPECT_THAT(terminal.Shown(), HasSubstr("\nlumcurl: upload-log " + server.Url()));
}

TEST(Terminal, ShowsADocumentAsSafeText) {
  WireServer server;
  server.Script(
      JsonReply("{\"a\":\"\xC2\x9B"
                "31m\x7F\xE2\x80\xAE\"}"));
  OnTerminal terminal(LumcurlCommand({"get", server.Url()}));
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_EQ(terminal.Shown(), "{\r\n    \"a\": \"\\xc2\\x9b31m\\x7f\\xe2\\x80\\xae\"\r\n}\r\n");
}

TEST(Terminal, ShowsTheReplyToAnUploadAsSafeText) {
  WireServer server;
  TempDir directory;
  const std::string file = directory.Write("f", "x");
  server.Script(StatusReply(200, "\x1b[31mred\n\ttab \xE2\x80"))
      .Script(StatusReply(200, "\x1b[31mred"));
  OnTerminal terminal(LumcurlCommand({"upload-video", "-q", server.Url(), file}));
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_EQ(terminal.Shown(), "\\x1b[31mred\r\n\ttab \\xe2\\x80\r\n");
  // Elsewhere data is data.
  EXPECT_EQ(Lumcurl({"upload-video", server.Url(), file}).out, "\x1b[31mred");
}

TEST(Terminal, KeepsDataWholeWhereOnlyMessagesGoToIt) {
  WireServer server;
  TempDir directory;
  server.Script(StatusReply(200, "\x1b[31mred"));
  const std::string file = directory.Write("f", "x");
  OnTerminal terminal({"sh", "-c",
                       ShellWords(LumcurlCommand({"upload-video", server.Url(), file})) + " > '" +
                           directory.Path("out") + "'"});
  EXPECT_EQ(terminal.Wait(), 0);
  EXPECT_EQ(ReadFile(directory.Path("out")), "\x1b[31mred");
  EXPECT_THAT(terminal.Shown(), AllOf(HasSubstr("1 B, "), Not(HasSubstr("red"))));
}

TEST(Terminal, ShowsMessagesAsSafeText) {
  WireServer server;
  server.Script(StatusReply(200, "<\x1b]0;title\a\n\xE2\x80\xA8>"));
  OnTerminal terminal(LumcurlCommand({"get", server.Url()}));
  EXPECT_EQ(terminal.Wait(), 1);
  EXPECT_THAT(terminal.Shown(),
              HasSubstr("the reply: <\\x1b]0;title\\x07\\x0a\\xe2\\x80\\xa8>\r\n"));
}

}  // namespace
}  // namespace lumtest
