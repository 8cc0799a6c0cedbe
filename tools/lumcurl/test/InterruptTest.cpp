// Commands that are interrupted: their exit status, and what they leave behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "Lumcurl.h"
#include "support/Files.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

class Interrupt : public testing::Test {
 protected:
  // What comes of a program that gets `signal` once its request is there.
  ProcessResult Interrupted(const Words& argv, int signal = SIGINT,
                            const ProcessOptions& options = {}) {
    const std::size_t requests = m_server.RequestCount();
    m_server.Script(WireReply().Stall());
    SpawnedProcess process(argv, LumcurlOptions(options));
    EXPECT_TRUE(m_server.WaitForRequests(requests + 1));
    process.Signal(signal);
    return process.Wait();
  }

  // What a terminal shows of an upload-dir that is interrupted while it packs what would take
  // minutes.
  std::string InterruptedWhilePacking() {
    m_directory.MakeDir("dir");
    MakeSparseFile(m_directory.Path("dir/large"), std::uint64_t{1} << 40);
    OnTerminal terminal(LumcurlCommand(
        {"upload-dir", "--overwrite", "http://127.0.0.1:9/", m_directory.Path("dir")}));
    EXPECT_TRUE(terminal.WaitFor("\rpacking, ")) << terminal.Shown();
    EXPECT_EQ(terminal.Interrupt(), SIGINT);
    return terminal.Shown();
  }

  WireServer m_server;
  TempDir m_directory;
};

// A shell then has 128 more than the signal's number for a status, and ends its loop.
TEST_F(Interrupt, EndsTheProcessByTheSignal) {
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    const ProcessResult result = Interrupted(LumcurlCommand({"get", m_server.Url()}), signal);
    EXPECT_EQ(result.signal, signal) << result.Describe();
    EXPECT_EQ(result.err, "lumcurl: interrupted\n");
  }
}

TEST_F(Interrupt, IsIgnoredWhereTheProcessWasStartedSo) {
  WireGate gate;
  m_server.Script(WireReply().Wait(gate).Send(WireAnswer(200, "{}")));
  SpawnedProcess process(
      {"sh", "-c", "trap '' INT; exec " + ShellWords(LumcurlCommand({"get", m_server.Url()}))},
      LumcurlOptions());
  ASSERT_TRUE(gate.WaitReached());
  process.Signal(SIGINT);
  gate.Release();
  EXPECT_EQ(process.Wait().exitStatus, 0);
}

TEST_F(Interrupt, ComesFromATerminal) {
  m_server.Script(WireReply(WireHead(200, {"Content-Length: 9"}) + "part").Stall());
  OnTerminal terminal(LumcurlCommand({"download", m_server.Url(), m_directory.Path("f")}));
  ASSERT_TRUE(m_server.WaitForRequests(1));  // the file is there
  ASSERT_TRUE(terminal.WaitFor("/s")) << terminal.Shown();
  EXPECT_EQ(terminal.Interrupt(), SIGINT);
  EXPECT_THAT(terminal.Shown(), HasSubstr("\nlumcurl: interrupted\r\n"));
  EXPECT_THAT(FilesBelow(m_directory.Path()), ElementsAre("f"));
}

TEST_F(Interrupt, LeavesFilesAloneThatItWasGivenOpen) {
  m_directory.Write("a.log", std::string(1000, 'a'));
  ProcessOptions options;
  options.directory = m_directory.Path();
  const Words upload = {"upload-file", "--limit-rate", "100K", m_server.Url(), "a.log"};
  const std::string command = "exec 9>>run.log; exec " + ShellWords(LumcurlCommand(upload));
  EXPECT_EQ(Interrupted({"sh", "-c", command}, SIGTERM, options).signal, SIGTERM);
  EXPECT_THAT(FilesBelow(m_directory.Path()), ElementsAre("a.log", "a.log.tar.gz", "run.log"));
}

TEST_F(Interrupt, SaysThatTheArchiveIsKept) {
  const std::string file = m_directory.Write("f", "content");
  const std::string said =
      "lumcurl: interrupted\nlumcurl: the archive is kept: send it with upload-log, or remove '" +
      file + ".tar.gz'\n";
  EXPECT_EQ(Interrupted(LumcurlCommand({"upload-file", m_server.Url(), file})).err, said);
  EXPECT_THAT(FilesBelow(m_directory.Path()), ElementsAre("f", "f.tar.gz"));
  // It takes the place of the older one.
  EXPECT_EQ(Interrupted(LumcurlCommand({"upload-file", "--overwrite", m_server.Url(), file})).err,
            said);
}

TEST_F(Interrupt, LeavesNothingOfAnArchiveThatIsBeingMade) {
  EXPECT_THAT(InterruptedWhilePacking(), StartsWith("\rpacking"));
  EXPECT_THAT(FilesBelow(m_directory.Path()), ElementsAre("dir", "dir/large"));
}

TEST_F(Interrupt, CallsNoOlderFileTheArchiveThatIsBeingMade) {
  const std::string older = m_directory.Write("dir.tar.gz", "precious");
  EXPECT_THAT(InterruptedWhilePacking(), testing::EndsWith("\nlumcurl: interrupted\r\n"));
  EXPECT_EQ(ReadFile(older), "precious");
}

TEST_F(Interrupt, RemovesTheDirectoryOfAGroup) {
  const TempDir temporary;
  ProcessOptions options;
  options.environment = {"TMPDIR=" + temporary.Path()};
  m_server.Script(WireReply().Stall());
  SpawnedProcess process(
      LumcurlCommand({"upload-group", m_server.Url(), m_directory.Write("f", "content")}),
      LumcurlOptions(options));
  ASSERT_TRUE(m_server.WaitForRequests(1));
  EXPECT_THAT(FilesBelow(temporary.Path()), Not(IsEmpty()));
  process.Signal(SIGINT);
  EXPECT_EQ(process.Wait().signal, SIGINT);
  EXPECT_THAT(FilesBelow(temporary.Path()), IsEmpty());
}

}  // namespace
}  // namespace lumtest
