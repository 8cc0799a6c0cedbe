// Tests of the logger: what a line looks like, what reaches a sink, and that no circumstance of the
// process (signals, fork, a closed descriptor, no memory, exit) takes a line apart or the process
// down.

#include "LumLogger.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <printf.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/Alloc.h"
#include "support/CaptureFd.h"
#include "support/Files.h"
#include "support/Process.h"
#include "support/Threads.h"

namespace {

std::atomic<int> g_pollTimeout{0};  // of the last call

// Of the writes to standard error to come: how many write nothing, and what they return.
std::atomic<int> g_vainWrites{0};
int g_vainResult = 0;
int g_vainErrno = 0;

}  // namespace

// The logger's own calls lead here, too.
#pragma GCC visibility push(default)
extern "C" {

int poll(pollfd* files, nfds_t count, int timeout) {
  g_pollTimeout = timeout;
  const timespec time = {timeout / 1000, timeout % 1000 * 1000000L};
  return ppoll(files, count, timeout < 0 ? nullptr : &time, nullptr);
}

ssize_t write(int fd, const void* data, std::size_t size) {
  if (fd == STDERR_FILENO && g_vainWrites > 0) {
    --g_vainWrites;
    errno = g_vainErrno;
    return g_vainResult;
  }
  return syscall(SYS_write, fd, data, size);
}

int sigtimedwait(const sigset_t* signals, siginfo_t* info, const timespec* time) {
  EXPECT_EQ(time->tv_sec + time->tv_nsec, 0);  // a signal that does not come is not waited for
  return static_cast<int>(syscall(SYS_rt_sigtimedwait, signals, info, time, _NSIG / 8));
}

}  // extern "C"
#pragma GCC visibility pop

namespace {

using lumtest::CaptureStderr;
using lumtest::LinesOf;
using ::testing::ElementsAre;

// Standard error leads to `fd`, which is closed, while this lives.
class Redirect {
 public:
  explicit Redirect(int fd) : m_before(dup(STDERR_FILENO)) {
    dup2(fd, STDERR_FILENO);
    close(fd);
  }
  ~Redirect() {
    dup2(m_before, STDERR_FILENO);
    close(m_before);
  }
  Redirect(const Redirect&) = delete;
  Redirect& operator=(const Redirect&) = delete;

 private:
  int m_before;
};

void LogText(const std::string& text) {
  LumLogger::GetInstance().Log("file", 7, "Function", " ", "", LumLogger::kInfo, "%s",
                               text.c_str());
}

// The value behind `name` in /proc/self/task/TID/status.
std::string StatusOf(pid_t thread, const std::string& name) {
  std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, name.size() + 2, name + ":\t") == 0) {
      return line.substr(name.size() + 2);
    }
  }
  return "";
}

bool IsAsleep(pid_t thread) {
  return StatusOf(thread, "State")[0] == 'S';
}

// False when `condition` does not come true within a time that is ample on any machine.
template <typename Condition>
bool Await(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

class LumLoggerTest : public ::testing::Test {
 protected:
  ~LumLoggerTest() override {
    LumLogger::GetInstance().SetSink(nullptr);
    LumLogger::GetInstance().SetLevel(LumLogger::kInfo);
  }

  LumLogger& m_logger = LumLogger::GetInstance();
};

// ---- Lines on standard error ----

TEST_F(LumLoggerTest, LineHoldsPlaceFunctionLevelAndMessage) {
  const char* volatile hidden = nullptr;  // from the compiler, which would refuse a plain null
  const char* const null = hidden;
  const wchar_t unwritable[] = {0x20ac, 0};  // no euro sign in the locale "C"
  m_logger.SetLevel(INT_MAX);
  CaptureStderr capture;
  lumtest::CaptureStdout standardOutput;
  m_logger.Log("dir/File", 42, "Get", " ", "", LumLogger::kError, "n=%d %s", 5, "five");
  m_logger.Log("dir/File", 43, "Get", " ", "", LumLogger::kWarning, "tolerated");
  m_logger.Log("dir/File", 44, "Get", " ", "", LumLogger::kInfo, "100%%");
  m_logger.Log("f", 0, "F", " ", "", 4, "a");
  m_logger.Log("f", -1, "F", " ", "", 0, "b");
  m_logger.Log("f", INT_MAX, "F", " ", "", INT_MIN, "c");
  LogText("");
  LogText("a\nb\r\n\tc\x1b[31m \xc2\x9b \xe2\x80\xae \xff \xc3\xa4\\");
  m_logger.Log("a\nb", 1, "c\nd", " ", "", LumLogger::kInfo, "m");
  m_logger.Log(null, 1, null, null, null, LumLogger::kInfo, "text %s", null);
  m_logger.Log("f", 2, "F", " ", "", LumLogger::kInfo, null, 0);
  m_logger.Log("f", 1, "F", " ", "", LumLogger::kInfo, "price %ls", unwritable);
  EXPECT_EQ(standardOutput.Stop(), "");
  EXPECT_THAT(LinesOf(capture.Stop()),
              ElementsAre("dir/File:42 Get error n=5 five", "dir/File:43 Get warning tolerated",
                          "dir/File:44 Get info 100%", "f:0 F debug a", "f:-1 F error b",
                          "f:2147483647 F error c", "file:7 Function info ",
                          "file:7 Function info a\\x0ab\\x0d\\x0a\tc\\x1b[31m \\xc2\\x9b "
                          "\\xe2\\x80\\xae \\xff \xc3\xa4\\",
                          "a\\x0ab:1 c\\x0ad info m", ":1  info text (null)", "f:2 F info ",
                          "f:1 F info price %ls"));
}

TEST_F(LumLoggerTest, MessageIsWholeHoweverLong) {
  for (const std::size_t length : {1020, 1021, 1022, 1023, 1024, 1025, 1026, 10 << 20}) {
    const std::string text(length, 'x');
    CaptureStderr capture;
    LogText(text);
    EXPECT_TRUE(capture.Text() == "file:7 Function info " + text + "\n") << length;
  }
}

TEST_F(LumLoggerTest, ErrnoSurvivesAndFeedsPercentM) {
  CaptureStderr capture;
  errno = ENOENT;
  m_logger.Log("f", 1, "F", " ", "", LumLogger::kInfo, "%m");
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(capture.Text(), "f:1 F info No such file or directory\n");
}

TEST_F(LumLoggerTest, ErrnoSurvivesWhateverASinkOrAWriteDoesToIt) {
  m_logger.SetSink([](const LumLogger::Record&) { errno = EIO; });
  errno = ENOENT;
  LogText("m");
  EXPECT_EQ(errno, ENOENT);
  m_logger.SetSink(nullptr);
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  Redirect redirect(full);
  errno = ENOENT;
  LogText("m");
  EXPECT_EQ(errno, ENOENT);
}

// A conversion of the test's own that changes errno, as printf may.
int PrintAndChangeErrno(FILE* stream, const printf_info*, const void* const*) {
  errno = EIO;
  return std::fputc('Y', stream) == 'Y' ? 1 : -1;
}

int NoArguments(const printf_info*, std::size_t, int*, int*) {
  return 0;
}

TEST_F(LumLoggerTest, LongMessageIsFormattedWithTheErrnoOfItsCaller) {
  ASSERT_EQ(register_printf_specifier('Y', PrintAndChangeErrno, NoArguments), 0);
  const std::string format = "%m" + std::string(2000, 'z') + "%Y";
  const char* volatile hidden = format.c_str();  // from the compiler, which does not know %Y
  // Nor does a sanitizer, which says so on standard error, once.
  ASSERT_GT(std::snprintf(nullptr, 0, hidden, 0), 2000);
  CaptureStderr capture;
  errno = ENOENT;
  m_logger.Log("f", 1, "F", " ", "", LumLogger::kInfo, hidden, 0);
  EXPECT_EQ(capture.Text(),
            "f:1 F info No such file or directory" + std::string(2000, 'z') + "Y\n");
  EXPECT_EQ(errno, ENOENT);
  register_printf_specifier('Y', nullptr, nullptr);
}

TEST_F(LumLoggerTest, MessageOfUpTo1023BytesTakesNoMemory) {
  m_logger.SetSink([](const LumLogger::Record&) {});
  const std::string fits(1023, 'x');
  const std::string tooLong(1024, 'x');
  std::size_t before = lumtest::NewsOfThisThread();
  LogText(fits);
  EXPECT_EQ(lumtest::NewsOfThisThread(), before);
  LogText(tooLong);
  EXPECT_EQ(lumtest::NewsOfThisThread(), before + 1);
}

// ---- Level ----

TEST_F(LumLoggerTest, LevelDropsWhatIsLessSevere) {
  for (int level = LumLogger::kSilent; level <= LumLogger::kInfo; ++level) {
    m_logger.SetLevel(level);
    std::vector<int> expected;
    std::vector<int> seen;
    m_logger.SetSink([&](const LumLogger::Record& record) { seen.push_back(record.level); });
    for (const int record : {INT_MIN, 0, 1, 2, 3}) {
      m_logger.Log("f", 1, "F", " ", "", record, "m");
      if (level != LumLogger::kSilent && record <= level) {
        expected.push_back(record);
      }
    }
    EXPECT_EQ(seen, expected) << level;
  }
}

TEST_F(LumLoggerTest, DroppedRecordIsNeitherFormattedNorAllocated) {
  m_logger.SetLevel(LumLogger::kError);
  int written = -1;
  CaptureStderr capture;
  const std::size_t allocations = lumtest::NewsOfThisThread();
  // %n would store the count if the format were ever walked.
  m_logger.Log("f", 1, "F", " ", "", LumLogger::kInfo, "1234%n", &written);
  EXPECT_EQ(lumtest::NewsOfThisThread(), allocations);
  EXPECT_EQ(written, -1);
  EXPECT_EQ(capture.Text(), "");
}

// ---- Sinks ----

TEST_F(LumLoggerTest, SinkGetsEveryFieldUnaltered) {
  int calls = 0;
  CaptureStderr capture;
  m_logger.SetSink([&](const LumLogger::Record& record) {
    ++calls;
    EXPECT_STREQ(record.file, "dir/File");
    EXPECT_EQ(record.line, 42);
    EXPECT_STREQ(record.function, "Post");
    EXPECT_STREQ(record.tag, "tag");
    EXPECT_STREQ(record.detail, "detail");
    EXPECT_EQ(record.level, LumLogger::kWarning);
    EXPECT_EQ(std::string(record.message, record.messageLength + 1),
              std::string("a\n\x1b\0b\0", 6));
  });
  m_logger.Log("dir/File", 42, "Post", "tag", "detail", LumLogger::kWarning, "a\n\x1b%c%s", 0, "b");
  m_logger.SetSink([&](const LumLogger::Record& record) {
    ++calls;
    EXPECT_EQ(std::string(record.file) + record.function + record.tag + record.detail, "");
    EXPECT_EQ(record.level, 0);
  });
  m_logger.Log(nullptr, 1, nullptr, nullptr, nullptr, 0, "m");
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(capture.Text(), "");
}

TEST_F(LumLoggerTest, EmptySinkRestoresStandardError) {
  int calls = 0;
  m_logger.SetSink([&](const LumLogger::Record&) { ++calls; });
  LogText("to the sink");
  m_logger.SetSink(LumLogger::Sink());
  CaptureStderr capture;
  LogText("back");
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(capture.Text(), "file:7 Function info back\n");
}

TEST_F(LumLoggerTest, WhatASinkThrowsIsDroppedAndTheNextRecordArrives) {
  int calls = 0;
  m_logger.SetSink([&](const LumLogger::Record&) {
    if (++calls == 1) {
      throw std::runtime_error("sink");
    }
    if (calls == 2) {
      throw 2;
    }
  });
  EXPECT_NO_THROW(LogText("one"));
  EXPECT_NO_THROW(LogText("two"));
  EXPECT_NO_THROW(LogText("three"));
  EXPECT_EQ(calls, 3);
}

TEST_F(LumLoggerTest, WhatASinkLogsGoesToStandardError) {
  std::vector<std::string> kept;
  CaptureStderr capture;
  m_logger.SetSink([&](const LumLogger::Record& record) {
    kept.push_back(record.message);
    LogText("from within " + kept.back());
  });
  LogText("one");
  LogText("two");
  EXPECT_THAT(kept, ElementsAre("one", "two"));
  EXPECT_EQ(capture.Text(),
            "file:7 Function info from within one\nfile:7 Function info from within two\n");
}

TEST_F(LumLoggerTest, SetSinkFromWithinASinkHasNoEffect) {
  int outer = 0;
  int inner = 0;
  m_logger.SetSink([&](const LumLogger::Record&) {
    ++outer;
    m_logger.SetSink([&](const LumLogger::Record&) { ++inner; });
  });
  LogText("one");
  LogText("two");
  EXPECT_EQ(outer, 2);
  EXPECT_EQ(inner, 0);
}

TEST_F(LumLoggerTest, ReplacedSinkMayLogWhileItIsDestroyed) {
  struct LogsAtItsEnd {
    ~LogsAtItsEnd() { LogText("sink destroyed"); }
  };
  std::vector<std::string> kept;
  auto owned = std::make_shared<LogsAtItsEnd>();
  m_logger.SetSink([owned](const LumLogger::Record&) {});
  owned.reset();
  m_logger.SetSink([&](const LumLogger::Record& record) { kept.push_back(record.message); });
  EXPECT_THAT(kept, ElementsAre("sink destroyed"));
}

// ---- Threads and fork ----

TEST_F(LumLoggerTest, LinesOfManyThreadsStayWhole) {
  constexpr int kThreads = 8;
  constexpr int kRecords = 500;
  CaptureStderr capture;
  lumtest::OnThreads(kThreads, [](int id) {
    const std::string text(static_cast<std::size_t>(1 + id * 300), static_cast<char>('a' + id));
    for (int i = 0; i < kRecords; ++i) {
      LogText(text);
    }
  });
  std::vector<int> seen(kThreads);
  for (const std::string& line : LinesOf(capture.Text())) {
    const int id = line.back() - 'a';
    ASSERT_TRUE(id >= 0 && id < kThreads) << line;
    ASSERT_EQ(line, "file:7 Function info " +
                        std::string(static_cast<std::size_t>(1 + id * 300), line.back()));
    ++seen[static_cast<std::size_t>(id)];
  }
  EXPECT_THAT(seen, ::testing::Each(kRecords));
}

// Makes a child that logs and ends; true when it did.
bool Fork() {
  const pid_t child = fork();
  if (child == 0) {
    LogText("child");
    _exit(3);
  }
  int status = -1;
  return waitpid(child, &status, 0) == child && WEXITSTATUS(status) == 3;
}

// Other threads log one at a time, a replaced sink is not called again, and a child of fork gets no
// lock that is held. A sink may fork itself, and others wait for it all the same.
TEST_F(LumLoggerTest, WhatAnotherThreadDoesWaitsForTheSink) {
  const std::function<void()> kActions[] = {
      [] { LogText("other"); },
      [this] { m_logger.SetSink(nullptr); },
      [] { EXPECT_TRUE(Fork()); },
  };
  const char* const kChild = "file:7 Function info child";  // within the sink
  CaptureStderr capture;
  for (const auto& action : kActions) {
    std::atomic<bool> started{false};
    std::atomic<bool> done{false};
    std::atomic<pid_t> other{0};
    std::thread thread;
    m_logger.SetSink([&](const LumLogger::Record&) {
      if (started.exchange(true)) {
        return;
      }
      EXPECT_TRUE(Fork());
      thread = std::thread([&] {
        other = gettid();
        action();
        done = true;
      });
      EXPECT_TRUE(Await([&] { return done || (other != 0 && IsAsleep(other)); }));
      EXPECT_FALSE(done);
    });
    LogText("m");
    thread.join();
    EXPECT_TRUE(done);
  }
  EXPECT_THAT(LinesOf(capture.Text()), ElementsAre(kChild, kChild, kChild));
}

// ---- Trouble ----

TEST_F(LumLoggerTest, RecordIsDroppedWhenMemoryRunsOutAtAnyPoint) {
  const std::string text = std::string(5000, 'm') + '\n';
  std::size_t nth = 0;
  bool failed = true;
  while (failed) {
    CaptureStderr capture;
    lumtest::FailNextNew(++nth);
    EXPECT_NO_THROW(LogText(text));
    failed = lumtest::AllocationHasFailed();
    lumtest::FailNextNew(0);
    EXPECT_EQ(capture.Stop(),
              failed ? "" : "file:7 Function info " + std::string(5000, 'm') + "\\x0a\n");
  }
  EXPECT_GT(nth, 1U);
}

std::uint64_t BlockedSignals(pid_t thread) {
  return std::stoull(StatusOf(thread, "SigBlk"), nullptr, 16);
}

std::uint64_t Bit(int signal) {
  return std::uint64_t{1} << (signal - 1);
}

// A thread that waits in the midst of a line for somebody to read.
struct Waiting {
  bool sleeps = false;
  std::uint64_t blockedBefore = 0;
  std::uint64_t blockedMeanwhile = 0;
  std::uint64_t blockedAfter = 0;
};

// So that what the logger leaves as it finds it is not zero by chance.
void FillTheStack() {
  volatile char bytes[16384];
  for (volatile char& byte : bytes) {
    byte = '\xff';
  }
}

// Logs a line that has `excess` bytes more than the pipe holds.
Waiting LogIntoAFullPipe(int pipeFlags, std::size_t excess) {
  Waiting seen;
  int ends[2];
  EXPECT_EQ(pipe2(ends, pipeFlags), 0);
  Redirect redirect(ends[1]);
  const int capacity = fcntl(ends[0], F_GETPIPE_SZ);
  std::string line = "file:7 Function info ";
  const std::string text(static_cast<std::size_t>(capacity) + excess - line.size() - 1, 'w');
  line += text + '\n';
  std::atomic<pid_t> writer{0};
  std::thread thread([&] {
    sigset_t others;
    sigemptyset(&others);
    sigaddset(&others, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &others, nullptr);
    seen.blockedBefore = BlockedSignals(gettid());
    writer = gettid();
    FillTheStack();
    LogText(text);
    seen.blockedAfter = BlockedSignals(gettid());
  });
  const auto isFull = [&] {
    int held = 0;
    ioctl(ends[0], FIONREAD, &held);
    return held == capacity;
  };
  seen.sleeps = Await([&] { return writer != 0 && isFull() && IsAsleep(writer); });
  seen.blockedMeanwhile = BlockedSignals(writer);
  fcntl(ends[0], F_SETFL, 0);
  std::string received(line.size(), '\0');
  for (std::size_t at = 0; at < received.size();) {
    const ssize_t got = read(ends[0], &received[at], received.size() - at);
    at += got > 0 ? static_cast<std::size_t>(got) : received.size();
  }
  EXPECT_TRUE(received == line);
  thread.join();
  close(ends[0]);
  return seen;
}

TEST_F(LumLoggerTest, SigpipeAloneIsBlockedAndOnlyWhileALineIsWritten) {
  const Waiting seen = LogIntoAFullPipe(0, 1 << 20);
  EXPECT_TRUE(seen.sleeps);
  EXPECT_EQ(seen.blockedMeanwhile, seen.blockedBefore | Bit(SIGPIPE));
  EXPECT_EQ(seen.blockedAfter, seen.blockedBefore);
  EXPECT_EQ(seen.blockedBefore & Bit(SIGPIPE), 0U);
}

TEST_F(LumLoggerTest, DescriptorThatDoesNotBlockIsWaitedForAsleep) {
  for (const std::size_t excess : {1 << 20, 1}) {
    EXPECT_TRUE(LogIntoAFullPipe(O_NONBLOCK, excess).sleeps);
    EXPECT_EQ(g_pollTimeout, -1);  // for as long as it takes
  }
}

TEST_F(LumLoggerTest, WriteThatTakesNothingOrThatASignalInterruptsIsMadeAgain) {
  for (const auto& [result, error] : {std::pair{0, EIO}, {-1, EINTR}}) {
    CaptureStderr capture;
    g_vainResult = result;
    g_vainErrno = error;
    g_vainWrites = 2;
    LogText("whole");
    EXPECT_EQ(g_vainWrites, 0);
    EXPECT_EQ(capture.Stop(), "file:7 Function info whole\n");
  }
}

TEST_F(LumLoggerTest, ReaderThatHasGoneLeavesSignalsAsTheyWere) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  Redirect redirect(ends[1]);

  sigset_t sigpipe;
  sigemptyset(&sigpipe);
  sigaddset(&sigpipe, SIGPIPE);
  sigset_t before;
  pthread_sigmask(SIG_BLOCK, &sigpipe, &before);
  sigset_t pending;

  LogText("nobody reads this");
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);

  pthread_kill(pthread_self(), SIGPIPE);  // one of the caller's own
  LogText("nor this");
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 1);

  const timespec noTime = {0, 0};
  EXPECT_EQ(sigtimedwait(&sigpipe, nullptr, &noTime), SIGPIPE);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  LogText("and the process is still there");
  sigset_t now;
  pthread_sigmask(SIG_BLOCK, nullptr, &now);
  EXPECT_EQ(sigismember(&now, SIGPIPE), 0);
}

// ---- Whole processes ----

const char* const kProbeLines =
    "probe:1 main error level 0\n"
    "probe:1 main error level 1\n"
    "probe:1 main warning level 2\n"
    "probe:1 main info level 3\n"
    "probe:2 ~LastWords info static\n";

TEST(LumLoggerProcess, NothingIsLostAtExitAndStaticDestructorsMayLog) {
  const lumtest::ProcessResult probe = lumtest::RunCommand({LUM_LOGGER_PROBE});
  EXPECT_TRUE(probe.Succeeded()) << probe.Describe();
  EXPECT_EQ(probe.err, kProbeLines);
  EXPECT_EQ(probe.out, "");
}

TEST(LumLoggerProcess, NoEnvironmentVariableChangesTheLevel) {
  for (const char* variable : {"SPDLOG_LEVEL=off", "SPDLOG_LEVEL=error", "LOG_LEVEL=off",
                               "LUM_LOG_LEVEL=0", "LUMLOGGER_LEVEL=0"}) {
    lumtest::ProcessOptions options;
    options.environment = {variable};
    const lumtest::ProcessResult probe = lumtest::RunCommand({LUM_LOGGER_PROBE}, options);
    EXPECT_TRUE(probe.Succeeded()) << probe.Describe();
    EXPECT_EQ(probe.err, kProbeLines) << variable;
  }
}

TEST(LumLoggerProcess, StandardErrorThatTakesNothingIsHarmless) {
  for (const char* nowhere : {"2>&-", "2>/dev/full"}) {
    const lumtest::ProcessResult probe =
        lumtest::RunCommand({"sh", "-c", std::string("exec \"$0\" ") + nowhere, LUM_LOGGER_PROBE});
    EXPECT_TRUE(probe.Succeeded()) << nowhere << probe.Describe();
    EXPECT_EQ(probe.out, "") << nowhere;
  }
}

}  // namespace
