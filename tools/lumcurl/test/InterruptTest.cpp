// Commands that are interrupted: their exit status, and what they leave behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>

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

// Waits until a file is read.
class Watch {
 public:
  explicit Watch(const std::string& file)
      : m_fd(inotify_init1(IN_CLOEXEC)),
        m_added(inotify_add_watch(m_fd, file.c_str(), IN_ACCESS) >= 0) {}
  ~Watch() { close(m_fd); }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  bool WaitForRead() {
    pollfd wait = {m_fd, POLLIN, 0};
    return m_added && poll(&wait, 1, 30000) == 1;
  }

 private:
  int m_fd;
  bool m_added;
};

TEST(Interrupt, EndsWith130) {
  WireServer server;
  server.Script(WireReply().Stall());
  SpawnedProcess process(LumcurlCommand({"get", server.Url()}), LumcurlOptions());
  ASSERT_TRUE(server.WaitForRequests(1));
  process.Signal(SIGINT);
  const ProcessResult result = process.Wait();
  EXPECT_EQ(result.exitStatus, 130) << result.Describe();
  EXPECT_THAT(result.err, HasSubstr("lumcurl: interrupted\n"));
}

TEST(Interrupt, EndsWith143ForATermination) {
  WireServer server;
  server.Script(WireReply().Stall());
  SpawnedProcess process(LumcurlCommand({"get", server.Url()}), LumcurlOptions());
  ASSERT_TRUE(server.WaitForRequests(1));
  process.Signal(SIGTERM);
  EXPECT_EQ(process.Wait().exitStatus, 143);
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
  ASSERT_TRUE(terminal.WaitFor("/s")) << terminal.Shown();
  terminal.Interrupt();
  EXPECT_EQ(terminal.Wait(), 130);
  EXPECT_THAT(terminal.Shown(), HasSubstr("\nlumcurl: interrupted\r\n"));
  EXPECT_EQ(Listing(directory.Path()), "f\n");
}

TEST(Interrupt, RemovesTheArchiveThatIsBeingUploaded) {
  WireServer server;
  TempDir directory;
  server.Script(WireReply().Stall());
  SpawnedProcess process(
      LumcurlCommand({"upload-file", server.Url(), directory.Write("f", "content")}),
      LumcurlOptions());
  ASSERT_TRUE(server.WaitForRequests(1));
  EXPECT_EQ(Listing(directory.Path()), "f\nf.tar.gz\n");
  process.Signal(SIGINT);
  EXPECT_EQ(process.Wait().exitStatus, 130);
  EXPECT_EQ(Listing(directory.Path()), "f\n");
}

TEST(Interrupt, RemovesTheArchiveThatIsBeingMade) {
  TempDir directory;
  directory.MakeDir("dir");
  MakeSparseFile(directory.Path("dir/large"), std::uint64_t{1} << 40);  // would take minutes
  Watch watch(directory.Path("dir/large"));
  SpawnedProcess process(
      LumcurlCommand({"upload-dir", "http://127.0.0.1:9/", directory.Path("dir")}),
      LumcurlOptions());
  ASSERT_TRUE(watch.WaitForRead());
  process.Signal(SIGINT);
  EXPECT_EQ(process.Wait().exitStatus, 130);
  EXPECT_EQ(Listing(directory.Path()), "dir\n");
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
  EXPECT_EQ(process.Wait().exitStatus, 130);
  EXPECT_EQ(Listing(temporary.Path()), "");
}

}  // namespace
}  // namespace lumtest
