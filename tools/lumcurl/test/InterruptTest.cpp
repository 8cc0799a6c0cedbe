// Commands that are interrupted: their exit status, and what they leave behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "Lumcurl.h"
#include "support/Files.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

using testing::HasSubstr;

// The names in a directory, hidden ones included, one a line.
std::string Listing(const std::string& directory) {
  return RunCommand({"ls", "-A", directory}).out;
}

TEST(Interrupt, EndsTheProcessByTheSignal) {
  WireServer server;
  server.Script(WireReply().Stall());
  SpawnedProcess process(LumcurlCommand({"get", server.Url()}), LumcurlOptions());
  ASSERT_TRUE(server.WaitForRequests(1));
  process.Signal(SIGINT);
  const ProcessResult result = process.Wait();
  EXPECT_EQ(result.signal, SIGINT) << result.Describe();
  EXPECT_THAT(result.err, HasSubstr("lumcurl: interrupted\n"));
}

TEST(Interrupt, EndsTheProcessByATermination) {
  WireServer server;
  server.Script(WireReply().Stall());
  SpawnedProcess process(LumcurlCommand({"get", server.Url()}), LumcurlOptions());
  ASSERT_TRUE(server.WaitForRequests(1));
  process.Signal(SIGTERM);
  EXPECT_EQ(process.Wait().signal, SIGTERM);
}

TEST(Interrupt, IsIgnoredWhereTheProcessWasStartedSo) {
  WireServer server;
  WireGate gate;
  server.Script(WireReply().Wait(gate).Send(WireAnswer(200, "{}")));
  SpawnedProcess process(
      {"sh", "-c", "trap '' INT; exec " + ShellWords(LumcurlCommand({"get", server.Url()}))},
      LumcurlOptions());
  ASSERT_TRUE(gate.WaitReached());
  process.Signal(SIGINT);
  gate.Release();
  EXPECT_EQ(process.Wait().exitStatus, 0);
}

TEST(Interrupt, ComesFromATerminal) {
  WireServer server;
  TempDir directory;
  server.Script(WireReply(WireHead(200, {"Content-Length: 9"}) + "part").Stall());
  OnTerminal terminal(LumcurlCommand({"download", server.Url(), directory.Path("f")}));
  ASSERT_TRUE(server.WaitForRequests(1));  // the file is there
  ASSERT_TRUE(terminal.WaitFor("/s")) << terminal.Shown();
  terminal.Interrupt();
  terminal.Wait();
  EXPECT_EQ(terminal.Signal(), SIGINT);
  EXPECT_THAT(terminal.Shown(), HasSubstr("\nlumcurl: interrupted\r\n"));
  EXPECT_EQ(Listing(directory.Path()), "f\n");
}

// What a shell calls the end by a signal.
TEST(Interrupt, HasTheStatusesOfTheManPage) {
  TempDir directory;
  for (const auto& [signal, status] : {std::pair{SIGHUP, 129}, {SIGINT, 130}, {SIGTERM, 143}}) {
    WireServer server;
    server.Script(WireReply().Stall());
    const std::string script = directory.Write(
        "script", "echo $$; exec " + ShellWords(LumcurlCommand({"get", server.Url()})));
    SpawnedProcess shell({"bash", "-c", "sh \"$0\"; echo status $?", script}, LumcurlOptions());
    Words groups;
    ASSERT_TRUE(shell.WaitForLine("^([0-9]+)$", &groups));
    ASSERT_TRUE(server.WaitForRequests(1));
    ASSERT_EQ(kill(std::stoi(groups.at(1)), signal), 0);
    EXPECT_THAT(shell.Wait().out, HasSubstr("\nstatus " + std::to_string(status) + "\n"));
  }
}

// The whole foreground group gets the signal; bash goes on unless its command died of it.
TEST(Interrupt, EndsTheLoopOfAShell) {
  WireServer server;
  server.Script(WireReply().Stall());
  SpawnedProcess shell({"bash", "-c",
                        "for i in 1 2 3; do " + ShellWords(LumcurlCommand({"get", server.Url()})) +
                            "; done; echo came here"},
                       LumcurlOptions());
  ASSERT_TRUE(server.WaitForRequests(1));
  ASSERT_EQ(kill(-shell.Pid(), SIGINT), 0);
  const ProcessResult result = shell.Wait();
  EXPECT_EQ(result.signal, SIGINT) << result.Describe();
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(server.RequestCount(), 1u);
}

TEST(Interrupt, LeavesFilesAloneThatItWasGivenOpen) {
  WireServer server;
  TempDir directory;
  directory.Write("a.log", std::string(1000, 'a'));
  server.Script(WireReply().Stall());
  ProcessOptions options;
  options.directory = directory.Path();
  SpawnedProcess process(
      {"sh", "-c",
       "exec 9>>run.log; exec " + ShellWords(LumcurlCommand({"upload-file", "--limit-rate", "100K",
                                                             server.Url(), "a.log"}))},
      LumcurlOptions(options));
  ASSERT_TRUE(server.WaitForRequests(1));
  process.Signal(SIGTERM);
  EXPECT_EQ(process.Wait().signal, SIGTERM);
  EXPECT_EQ(Listing(directory.Path()), "a.log\na.log.tar.gz\nrun.log\n");
}

TEST(Interrupt, SaysThatTheArchiveIsKept) {
  WireServer server;
  TempDir directory;
  server.Script(WireReply().Stall());
  SpawnedProcess process(
      LumcurlCommand({"upload-file", server.Url(), directory.Write("f", "content")}),
      LumcurlOptions());
  ASSERT_TRUE(server.WaitForRequests(1));
  process.Signal(SIGINT);
  EXPECT_EQ(
      process.Wait().err,
      "lumcurl: interrupted\nlumcurl: the archive is kept: send it with upload-log, or remove "
      "'" +
          directory.Path("f.tar.gz") + "'\n");
  EXPECT_EQ(Listing(directory.Path()), "f\nf.tar.gz\n");
}

TEST(Interrupt, LeavesNothingOfAnArchiveThatIsBeingMade) {
  TempDir directory;
  directory.MakeDir("dir");
  MakeSparseFile(directory.Path("dir/large"), std::uint64_t{1} << 40);  // would take minutes
  FileWatch watch(directory.Path("dir/large"));
  SpawnedProcess process(
      LumcurlCommand({"upload-dir", "http://127.0.0.1:9/", directory.Path("dir")}),
      LumcurlOptions());
  ASSERT_TRUE(watch.WaitForRead());
  process.Signal(SIGINT);
  EXPECT_EQ(process.Wait().signal, SIGINT);
  EXPECT_EQ(Listing(directory.Path()), "dir\n");
}

TEST(Interrupt, CallsNoOlderFileTheArchiveThatIsBeingMade) {
  TempDir directory;
  directory.MakeDir("dir");
  MakeSparseFile(directory.Path("dir/large"), std::uint64_t{1} << 40);  // would take minutes
  const std::string older = directory.Write("dir.tar.gz", "precious");
  FileWatch watch(directory.Path("dir/large"));
  SpawnedProcess process(
      LumcurlCommand({"upload-dir", "--overwrite", "http://127.0.0.1:9/", directory.Path("dir")}),
      LumcurlOptions());
  ASSERT_TRUE(watch.WaitForRead());
  process.Signal(SIGINT);
  EXPECT_EQ(process.Wait().err, "lumcurl: interrupted\n");
  EXPECT_EQ(ReadFile(older), "precious");
}

TEST(Interrupt, SaysThatAnArchiveIsKeptThatReplacedAnOlderFile) {
  WireServer server;
  TempDir directory;
  directory.Write("f.tar.gz", "older");
  server.Script(WireReply().Stall());
  SpawnedProcess process(
      LumcurlCommand({"upload-file", "--overwrite", server.Url(), directory.Write("f", "content")}),
      LumcurlOptions());
  ASSERT_TRUE(server.WaitForRequests(1));
  process.Signal(SIGINT);
  EXPECT_THAT(process.Wait().err, HasSubstr("\nlumcurl: the archive is kept: "));
}

TEST(Interrupt, RemovesTheDirectoryOfAGroup) {
  WireServer server;
  TempDir directory;
  TempDir temporary;
  server.Script(WireReply().Stall());
  ProcessOptions options;
  options.environment = {"TMPDIR=" + temporary.Path()};
  SpawnedProcess process(
      LumcurlCommand({"upload-group", server.Url(), directory.Write("f", "content")}),
      LumcurlOptions(options));
  ASSERT_TRUE(server.WaitForRequests(1));
  EXPECT_NE(Listing(temporary.Path()), "");
  process.Signal(SIGINT);
  EXPECT_EQ(process.Wait().signal, SIGINT);
  EXPECT_EQ(Listing(temporary.Path()), "");
}

}  // namespace
}  // namespace lumtest
