// The torture of operations that do each thing wrong: it must notice every one.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

#include "FailingCall.h"
#include "FailingMalloc.h"
#include "Judge.h"
#include "Trial.h"

namespace lumtest {
namespace {

using ::testing::HasSubstr;

// Whether there was memory; the compiler must not leave the allocation out.
bool Allocate() {
  void* volatile block = std::malloc(10);
  const bool done = block != nullptr;
  std::free(block);
  return done;
}

// An operation of one allocation, which answers "done" or, after `onFailure`, "failed".
Subject OneAllocation(const std::function<void(World&)>& onFailure) {
  Subject subject{"Planted", [onFailure](World& w) {
                    if (w.caller.Try([] { return Allocate(); })) {
                      return "done";
                    }
                    onFailure(w);
                    return "failed";
                  }};
  subject.failures = {{"failed", "", StatedFailure::Log::kNothing}};
  subject.limitSeconds = 1;
  return subject;
}

class TortureTest : public ::testing::Test {
 protected:
  Result Torture(const Subject& subject) {
    const UnnamedFile report;
    const std::vector<Trial> trials = {
        {subject, Connection::kPlain, subject.scenarios.at(0), faults}};
    const Result result = RunAll(trials, 1, report.Get(), std::chrono::seconds(1)).at(0);
    text = report.Text();
    return result;
  }

  void ExpectBad(const Subject& subject, const char* reason) {
    const Result result = Torture(subject);
    EXPECT_GE(result.bad, 1U);
    EXPECT_THAT(text, HasSubstr("BAD: Planted, "));
    EXPECT_THAT(text, HasSubstr(reason));
  }

  Faults (*faults)() = &Allocations;
  std::string text;  // what was reported
};

TEST_F(TortureTest, LetsAStatedFailurePass) {
  const Result result = Torture(OneAllocation([](World&) {}));
  EXPECT_EQ(result.Tried(), 1U);
  EXPECT_EQ(result.failed, 1U);
  EXPECT_EQ(text, "");
}

TEST_F(TortureTest, LetsBadAllocPass) {
  const Result result =
      Torture({"Planted", [](World& w) {
                 w.caller.Try([] { return std::string(100, 'x') + std::string("y"); });
                 return std::string("done");
               }});
  EXPECT_GE(result.Tried(), 2U);
  EXPECT_EQ(result.threw, result.Tried());
  EXPECT_EQ(text, "");
}

TEST_F(TortureTest, LetsAFaultPassThatIsMadeGood) {
  Subject subject = OneAllocation([](World&) {});
  subject.run = [](World& w) {
    w.caller.Try([] { return Allocate() || Allocate(); });
    return "done";
  };
  const Result result = Torture(subject);
  EXPECT_EQ(result.Tried(), 1U);
  EXPECT_EQ(result.same, 1U);
}

TEST_F(TortureTest, NoticesAnAnswerThatIsNotStated) {
  Subject subject = OneAllocation([](World&) {});
  subject.failures.clear();
  ExpectBad(subject, "it answered \"failed\"");
}

TEST_F(TortureTest, NoticesAFailureThatIsNotLogged) {
  Subject subject = OneAllocation([](World&) {});
  subject.failures = {{"failed"}};
  ExpectBad(subject, "it answered \"failed\"");
  subject = OneAllocation(
      [](World&) { [[maybe_unused]] const ssize_t written = write(2, "x:1 Get error why\n", 18); });
  subject.failures = {{"failed", "because"}};
  ExpectBad(subject, "it answered \"failed\"");
  subject.failures = {{"failed", "why"}};
  EXPECT_EQ(Torture(subject).failed, 1U);
}

TEST_F(TortureTest, NoticesASuccessWithoutItsRequest) {
  Subject subject{"Planted",
                  [](World& w) {
                    int status = 0;
                    if (w.caller.Try([] { return Allocate(); })) {
                      w.caller.general.Get(w.url, "", false, status);
                    }
                    return "done";
                  },
                  {Scenario::kAnswer}};
  ExpectBad(subject, "it answered \"done\", with other requests than usual");
}

TEST_F(TortureTest, NoticesABodyThatIsFramedInAnotherWay) {
  Subject subject{"Planted",
                  [](World& w) {
                    int status = 0;
                    std::list<std::string> lines;
                    if (!w.caller.Try([] { return Allocate(); })) {
                      lines = {"Transfer-Encoding: chunked"};
                    }
                    w.caller.service.Post(w.url, "{}", lines, status);
                    return "done";
                  },
                  {Scenario::kAnswer}};
  ExpectBad(subject, "it answered \"done\", with other requests than usual");
}

TEST_F(TortureTest, NoticesWhatAFailureLeavesBehind) {
  struct Wrong {
    std::function<void(World&)> onFailure;
    const char* reason;
  };
  const Wrong kWrongs[] = {
      {[](World&) {
         void* volatile lost = std::malloc(10);
         (void)lost;
       },
       "it lost 1 blocks of memory"},
      {[](World&) { (void)open("/dev/null", O_RDONLY | O_CLOEXEC); }, "a descriptor was left open"},
      {[](World&) {
         while (true) {
           pause();
         }
       },
       "it hung"},
      {[](World&) { std::exit(1); }, "it ended the process"},
      {[](World& w) { WriteFile(w.Path("a.log.tar.gz"), "part"); },
       "a partial archive has the name a.log.tar.gz"},
      {[](World& w) { WriteFile(w.Path(".lum-archive-1"), "part"); },
       ".lum-archive-1 was left behind"},
      {[](World& w) { AppendFile(w.Path("a.log"), "more"); }, "a.log was touched"},
  };
  for (const Wrong& wrong : kWrongs) {
    SCOPED_TRACE(wrong.reason);
    ExpectBad(OneAllocation(wrong.onFailure), wrong.reason);
  }
}

TEST_F(TortureTest, TakesNoCacheForLostMemory) {
  const Result result = Torture(OneAllocation([](World&) {
    static void* const kept = std::malloc(10);
    (void)kept;
  }));
  EXPECT_EQ(result.failed, 1U);
  EXPECT_EQ(result.bad, 0U);
}

TEST_F(TortureTest, NoticesAnObjectThatIsSpoilt) {
  static bool spoilt = false;
  Subject subject = OneAllocation([](World&) { spoilt = true; });
  subject.run = [run = subject.run](World& w) { return spoilt ? std::string("spoilt") : run(w); };
  ExpectBad(subject, "and then the object answered \"spoilt\"");
}

TEST_F(TortureTest, NoticesALockLeftTaken) {
  static std::mutex mutex;
  Subject subject = OneAllocation([](World&) { mutex.lock(); });
  subject.run = [run = subject.run](World& w) {
    mutex.lock();
    mutex.unlock();
    return run(w);
  };
  ExpectBad(subject, "it hung");
}

TEST_F(TortureTest, NoticesACrashAndGoesOn) {
  const Result result = Torture({"Planted", [](World& w) {
                                   const bool done = w.caller.Try([] {
                                     delete new std::string(100, 'x');
                                     return Allocate();
                                   });
                                   if (!done) {
                                     std::abort();
                                   }
                                   w.caller.Try([] { delete new std::string(100, 'x'); });
                                   return std::string("done");
                                 }});
  EXPECT_EQ(result.bad, 1U);
  EXPECT_EQ(result.threw, result.Tried() - 1);
  EXPECT_GE(result.threw, 2U);
  EXPECT_THAT(text, HasSubstr("signal 6"));
}

// --- The malloc family ---

TEST(FailingMalloc, StrikesEveryWayToAllocate) {
  const std::function<bool()> kWays[] = {
      [] { return Allocate(); },
      [] {
        void* volatile block = std::calloc(2, 5);
        std::free(block);
        return block != nullptr;
      },
      [] {
        void* volatile block = std::realloc(nullptr, 5);
        std::free(block);
        return block != nullptr;
      },
      [] {
        void* block = nullptr;
        const int result = posix_memalign(&block, 64, 64);
        std::free(result == 0 ? block : nullptr);
        return result == 0;
      },
      [] {
        void* volatile block = std::aligned_alloc(64, 64);
        std::free(block);
        return block != nullptr;
      },
      [] {
        char* volatile text = strdup("text");
        std::free(text);
        return text != nullptr;
      },
      [] {
        FILE* const file = std::fopen("/dev/null", "r");
        return file != nullptr && std::fclose(file) == 0;
      },
  };
  FailingMalloc fault;
  for (const auto& way : kWays) {
    const long live = LiveBlocksOfThisThread();
    fault.Arm(1);
    EXPECT_FALSE(way());
    EXPECT_TRUE(fault.Struck());
    EXPECT_TRUE(way()) << "only one fails";
    EXPECT_EQ(LiveBlocksOfThisThread(), live);
  }
  fault.Arm(1);
  EXPECT_THROW(std::string(100, 'x'), std::bad_alloc);
  fault.Arm(1);
  EXPECT_THROW((void)operator new(64, std::align_val_t(64)), std::bad_alloc);
  fault.Arm(1);
  fault.Disarm();
  EXPECT_TRUE(Allocate());
}

TEST(FailingMalloc, LeavesABlockThatCannotGrowAsItIs) {
  FailingMalloc fault;
  char* volatile block = static_cast<char*>(std::malloc(5));
  std::strcpy(block, "text");
  fault.Arm(1);
  char* volatile grown = static_cast<char*>(std::realloc(block, 100000));
  EXPECT_EQ(grown, nullptr);
  EXPECT_STREQ(block, "text");
  std::free(block);
}

// --- System calls. The filter stays with its thread: each test has one of its own. ---

void InAThread(const std::function<void()>& work) {
  std::thread(work).join();
}

TEST(FailingCall, StrikesTheCallThatIsAskedFor) {
  InAThread([] {
    FailingCall fault({"lseek", {SYS_lseek}, Target::kAny, EIO});
    const int file = memfd_create("file", MFD_CLOEXEC);
    fault.Arm(2);
    EXPECT_EQ(lseek(file, 0, SEEK_SET), 0);
    EXPECT_FALSE(fault.Struck());
    EXPECT_EQ(lseek(file, 0, SEEK_SET), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_TRUE(fault.Struck());
    EXPECT_EQ(lseek(file, 0, SEEK_SET), 0);
    fault.Arm(1);
    fault.Disarm();
    EXPECT_EQ(lseek(file, 0, SEEK_SET), 0);
    close(file);
  });
}

TEST(FailingCall, ReachesIntoStdio) {
  InAThread([] {
    FailingCall open({"open", {SYS_open, SYS_openat}, Target::kAny, EMFILE});
    open.Arm(1);
    EXPECT_EQ(std::fopen("/dev/zero", "rb"), nullptr);
    EXPECT_EQ(errno, EMFILE);
    FILE* const zero = std::fopen("/dev/zero", "rb");
    ASSERT_NE(zero, nullptr);
    FailingCall read({"read", {SYS_read}, Target::kFile, EIO});
    read.Arm(1);
    char byte = 1;
    EXPECT_EQ(std::fread(&byte, 1, 1, zero), 0U);
    EXPECT_TRUE(std::ferror(zero));
    std::fclose(zero);
  });
}

TEST(FailingCall, DoesHalfOfTheWork) {
  InAThread([] {
    FailingCall fault({"write", {SYS_write, SYS_writev}, Target::kFile, 0});
    const int file = memfd_create("file", MFD_CLOEXEC);
    fault.Arm(1);
    EXPECT_EQ(write(file, "0123456789", 10), 5);
    fault.Arm(1);
    char text[] = "abc";
    const iovec parts[] = {{text, 3}, {text, 3}};
    EXPECT_EQ(writev(file, parts, 2), 2);
    char all[20] = "";
    EXPECT_EQ(pread(file, all, sizeof all, 0), 7);
    EXPECT_STREQ(all, "01234ab");
    close(file);
  });
}

TEST(FailingCall, ClosesWhatItReportsAsNotClosed) {
  InAThread([] {
    FailingCall fault({"close", {SYS_close}, Target::kAny, EIO});
    const int file = memfd_create("file", MFD_CLOEXEC);
    fault.Arm(1);
    EXPECT_EQ(close(file), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(fcntl(file, F_GETFD), -1);
  });
}

TEST(FailingCall, TellsFilesFromSockets) {
  InAThread([] {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    FailingCall file({"write", {SYS_write}, Target::kFile, EIO});
    file.Arm(1);
    EXPECT_EQ(write(ends[0], "x", 1), 1);
    EXPECT_FALSE(file.Struck());
    FailingCall socket({"write", {SYS_write}, Target::kSocket, ECONNRESET});
    socket.Arm(1);
    EXPECT_EQ(write(ends[0], "x", 1), -1);
    EXPECT_EQ(errno, ECONNRESET);
    close(ends[0]);
    close(ends[1]);
  });
}

TEST(FailingCall, LeavesOtherThreadsAlone) {
  InAThread([] {
    FailingCall fault({"lseek", {SYS_lseek}, Target::kAny, EIO});
    fault.Arm(1);
    InAThread([] {
      const int file = memfd_create("file", MFD_CLOEXEC);
      EXPECT_EQ(lseek(file, 0, SEEK_SET), 0);
      close(file);
    });
    EXPECT_FALSE(fault.Struck());
  });
}

TEST_F(TortureTest, NoticesAnUploadThatIsCutShort) {
  Subject subject{"Planted",
                  [](World& w) {
                    const int file = open(w.Path("a.log").c_str(), O_RDONLY | O_CLOEXEC);
                    std::string content(50000, '\0');
                    // Takes one read for the whole file.
                    const ssize_t got =
                        w.caller.Try([&] { return read(file, content.data(), content.size()); });
                    close(file);
                    content.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
                    int status = 0;
                    w.caller.general.Post(w.url, content, false, status);
                    return std::to_string(status);
                  },
                  {Scenario::kAnswer}};
  faults = &EveryCallFault;
  ExpectBad(subject, "read EIO 1: it answered \"200\", with other requests than usual");
  EXPECT_THAT(text, HasSubstr("read short 1: it answered \"200\", with other requests"));
}

// --- Excuses ---

TEST(Excuses, ExcuseNothingOfOurOwn) {
  static FaultRecord record;  // of the process, from here on
  RecordFaultsIn(&record);
  FailingMalloc fault;
  fault.Arm(1);
  EXPECT_FALSE(Allocate());
  EXPECT_GT(record.fault.depth, 0);
  EXPECT_FALSE(IsExcused("it ended the process", record));
  EXPECT_FALSE(IsExcused("it answered, with other requests than usual", record));
}

}  // namespace
}  // namespace lumtest
