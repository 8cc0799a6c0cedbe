// Programs run to their end and beside the test.

#include "support/Process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "support/Files.h"
#include "support/ProcessState.h"
#include "support/Threads.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::vector<std::string> Shell(const std::string& script) {
  return {"sh", "-c", script};
}

TEST(RunCommand, GivesInputOfAnySize) {
  EXPECT_EQ(RunCommand({"cat"}).out, "");
  ProcessOptions options;
  options.input = std::string(3000000, 'x') + "end";
  EXPECT_EQ(RunCommand({"cat"}, options).out, options.input);
  // A program that does not want it must not end the test.
  EXPECT_TRUE(RunCommand({"true"}, options).Succeeded());
}

TEST(RunCommand, SetsDirectoryAndEnvironment) {
  const TempDir directory;
  ProcessOptions options;
  options.directory = directory.Path();
  options.environment = {"LUM_NEW=new value", "HOME=/changed"};
  EXPECT_EQ(RunCommand(Shell("pwd -P; echo \"$LUM_NEW,$HOME\"; test -n \"$PATH\""), options).out,
            directory.Path() + "\nnew value,/changed\n");
  options.directory = directory.Path("none");
  EXPECT_THROW(RunCommand({"true"}, options), std::runtime_error);
}

TEST(RunCommand, NamesAProgramThatIsNotThere) {
  try {
    RunCommand({"lum-no-such-program"});
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("lum-no-such-program"));
    EXPECT_THAT(error.what(), HasSubstr("No such file"));
  }
  EXPECT_THROW(RunCommand({}), std::runtime_error);
}

TEST(RunCommand, EndsWhatTakesTooLong) {
  const ProcessResult result =
      RunCommand(Shell("echo begun; sleep 1000; true"), {}, std::chrono::milliseconds(300));
  EXPECT_TRUE(result.timedOut);
  EXPECT_EQ(result.signal, SIGKILL);
  EXPECT_EQ(result.out, "begun\n");
}

TEST(RunCommand, DoesNotWaitForWhatTheProgramLeavesBehind) {
  const ProcessResult result = RunCommand(Shell("sleep 5 & echo done"));
  EXPECT_TRUE(result.Succeeded());
  EXPECT_EQ(result.out, "done\n");
}

TEST(RunCommand, HandsNothingOfTheTestOn) {
  const std::size_t before = OpenDescriptors();
  // The last one is the listing's own.
  EXPECT_EQ(RunCommand({"ls", "/proc/self/fd"}).out, "0\n1\n2\n3\n");
  EXPECT_EQ(RunCommand(Shell("grep SigBlk /proc/self/status")).out, "SigBlk:\t0000000000000000\n");
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(RunCommand, RunsFromManyThreads) {
  std::vector<std::string> outs(6);
  OnThreads(6, [&outs](int i) {
    outs[static_cast<std::size_t>(i)] = RunCommand({"echo", std::to_string(i)}).out;
  });
  EXPECT_THAT(outs, ElementsAre("0\n", "1\n", "2\n", "3\n", "4\n", "5\n"));
}

TEST(SpawnedProcess, WaitsForALine) {
  SpawnedProcess process(Shell("echo starting; echo 'ready on port=4711.' >&2; cat"));
  std::vector<std::string> groups;
  ASSERT_TRUE(process.WaitForLine("port=([0-9]+)", &groups)) << process.Err();
  EXPECT_THAT(groups, ElementsAre("port=4711", "4711"));
  EXPECT_TRUE(process.WaitForLine("^starting$"));
  EXPECT_TRUE(process.WaitForLine("(x)?start", &groups));
  EXPECT_THAT(groups, ElementsAre("start", ""));
  EXPECT_FALSE(process.WaitForLine("never", nullptr, std::chrono::milliseconds(1)));
  EXPECT_THROW(process.WaitForLine("("), std::runtime_error);
}

TEST(SpawnedProcess, StopsWaitingWhenTheProgramEnds) {
  SpawnedProcess process(Shell("printf 'no line end'; exit 3"));
  EXPECT_FALSE(process.WaitForLine("never"));
  EXPECT_TRUE(process.WaitForLine("end$"));
  EXPECT_EQ(process.Wait().exitStatus, 3);
  process.Signal(SIGKILL);  // reaches nobody
  EXPECT_EQ(process.Stop().exitStatus, 3);
}

TEST(SpawnedProcess, StopsPolitelyAndThenNot) {
  SpawnedProcess polite(
      Shell("trap 'echo bye; exit 0' TERM; echo ready; while :; do sleep 0.01; done"));
  ASSERT_TRUE(polite.WaitForLine("ready"));
  const ProcessResult result = polite.Stop();
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.out, "ready\nbye\n");

  SpawnedProcess deaf(Shell("trap '' TERM; echo ready; while :; do sleep 0.01; done"));
  ASSERT_TRUE(deaf.WaitForLine("ready"));
  const ProcessResult killed = deaf.Stop(std::chrono::milliseconds(50));
  EXPECT_EQ(killed.signal, SIGKILL);
  EXPECT_TRUE(killed.timedOut);
}

TEST(SpawnedProcess, EndsWithItsObject) {
  pid_t pid = 0;
  {
    SpawnedProcess process({"sleep", "1000"});
    pid = process.Pid();
    EXPECT_EQ(kill(pid, 0), 0);
  }
  EXPECT_EQ(kill(pid, 0), -1);
}

}  // namespace
}  // namespace lumtest
