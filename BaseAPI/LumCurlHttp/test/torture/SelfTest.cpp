// The torture of operations that do each thing wrong: it must notice every one.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>

#include "Excuses.h"
#include "FailingMalloc.h"
#include "Supervisor.h"

namespace lumtest {
namespace {

using ::testing::HasSubstr;

Faults Allocations() {
  Faults faults;
  faults.push_back(std::make_unique<FailingMalloc>());
  return faults;
}

// Whether there was memory; the compiler must not leave the allocation out.
bool Allocate() {
  void* volatile block = std::malloc(10);
  const bool done = block != nullptr;
  std::free(block);
  return done;
}

// An operation of one allocation, which answers "done" or, after `onFailure`, "failed".
Operation OneAllocation(const std::function<void(World&)>& onFailure) {
  Operation operation{"Planted", [onFailure](World& w) {
                        if (w.Try([] { return Allocate(); })) {
                          return "done";
                        }
                        onFailure(w);
                        return "failed";
                      }};
  operation.failures = {{"failed", "", StatedFailure::Log::kNothing}};
  operation.limitSeconds = 1;
  return operation;
}

class TortureTest : public ::testing::Test {
 protected:
  Result Torture(const Operation& operation) {
    FILE* const report = std::tmpfile();
    const std::vector<Trial> trials = {
        {operation, Connection::kPlain, operation.roads.at(0), &Allocations}};
    const Result result = RunAll(trials, 1, report, std::chrono::seconds(1)).at(0);
    std::fseek(report, 0, SEEK_END);
    text.resize(static_cast<std::size_t>(std::ftell(report)));
    std::rewind(report);
    EXPECT_EQ(std::fread(text.data(), 1, text.size(), report), text.size());
    std::fclose(report);
    return result;
  }

  void ExpectBad(const Operation& operation, const char* reason) {
    const Result result = Torture(operation);
    EXPECT_GE(result.bad, 1U);
    EXPECT_THAT(text, HasSubstr("BAD: Planted, "));
    EXPECT_THAT(text, HasSubstr(reason));
  }

  std::string text;  // what was reported
};

TEST_F(TortureTest, LetsAStatedFailurePass) {
  const Result result = Torture(OneAllocation([](World&) {}));
  EXPECT_EQ(result.tried, 1U);
  EXPECT_EQ(result.failed, 1U);
  EXPECT_EQ(text, "");
}

TEST_F(TortureTest, LetsBadAllocPass) {
  const Result result = Torture({"Planted", [](World& w) {
                                   w.Try([] { return std::string(100, 'x') + std::string("y"); });
                                   return std::string("done");
                                 }});
  EXPECT_GE(result.tried, 2U);
  EXPECT_EQ(result.threw, result.tried);
  EXPECT_EQ(text, "");
}

TEST_F(TortureTest, LetsAFaultPassThatIsMadeGood) {
  Operation operation = OneAllocation([](World&) {});
  operation.run = [](World& w) {
    w.Try([] { return Allocate() || Allocate(); });
    return "done";
  };
  const Result result = Torture(operation);
  EXPECT_EQ(result.tried, 1U);
  EXPECT_EQ(result.same, 1U);
}

TEST_F(TortureTest, NoticesAnAnswerThatIsNotStated) {
  Operation operation = OneAllocation([](World&) {});
  operation.failures.clear();
  ExpectBad(operation, "it answered \"failed\"");
}

TEST_F(TortureTest, NoticesAFailureThatIsNotLogged) {
  Operation operation = OneAllocation([](World&) {});
  operation.failures = {{"failed"}};
  ExpectBad(operation, "it answered \"failed\"");
  operation = OneAllocation([](World&) { (void)write(2, "x:1 Get error why\n", 18); });
  operation.failures = {{"failed", "because"}};
  ExpectBad(operation, "it answered \"failed\"");
  operation.failures = {{"failed", "why"}};
  EXPECT_EQ(Torture(operation).failed, 1U);
}

TEST_F(TortureTest, NoticesASuccessWithoutItsRequest) {
  Operation operation{"Planted",
                      [](World& w) {
                        int status = 0;
                        if (w.Try([] { return Allocate(); })) {
                          w.http.Get(w.url, "", false, status);
                        }
                        return "done";
                      },
                      {Road::kAnswer}};
  ExpectBad(operation, "it answered \"done\", with other requests than usual");
}

TEST_F(TortureTest, NoticesLostMemory) {
  ExpectBad(OneAllocation([](World&) {
              void* volatile lost = std::malloc(10);
              (void)lost;
            }),
            "it lost 1 blocks of memory");
}

TEST_F(TortureTest, TakesNoCacheForLostMemory) {
  const Result result = Torture(OneAllocation([](World&) {
    static void* const kept = std::malloc(10);
    (void)kept;
  }));
  EXPECT_EQ(result.failed, 1U);
  EXPECT_EQ(result.bad, 0U);
}

TEST_F(TortureTest, NoticesADescriptorLeftOpen) {
  ExpectBad(OneAllocation([](World&) { (void)open("/dev/null", O_RDONLY | O_CLOEXEC); }),
            "a descriptor was left open");
}

TEST_F(TortureTest, NoticesAnObjectThatIsSpoilt) {
  static bool spoilt = false;
  Operation operation = OneAllocation([](World&) { spoilt = true; });
  operation.run = [run = operation.run](World& w) {
    return spoilt ? std::string("spoilt") : run(w);
  };
  ExpectBad(operation, "and then the object answered \"spoilt\"");
}

TEST_F(TortureTest, NoticesALockLeftTaken) {
  static std::mutex mutex;
  Operation operation = OneAllocation([](World&) { mutex.lock(); });
  operation.run = [run = operation.run](World& w) {
    mutex.lock();
    mutex.unlock();
    return run(w);
  };
  ExpectBad(operation, "it hung");
}

TEST_F(TortureTest, NoticesAHang) {
  ExpectBad(OneAllocation([](World&) {
              while (true) {
                pause();
              }
            }),
            "it hung");
}

TEST_F(TortureTest, NoticesTheEndOfTheProcess) {
  ExpectBad(OneAllocation([](World&) { std::exit(1); }), "it ended the process");
}

TEST_F(TortureTest, NoticesACrashAndGoesOn) {
  const Result result = Torture({"Planted", [](World& w) {
                                   const bool done = w.Try([] {
                                     delete new std::string(100, 'x');
                                     return Allocate();
                                   });
                                   if (!done) {
                                     std::abort();
                                   }
                                   w.Try([] { delete new std::string(100, 'x'); });
                                   return std::string("done");
                                 }});
  EXPECT_EQ(result.bad, 1U);
  EXPECT_EQ(result.threw, result.tried - 1);
  EXPECT_GE(result.threw, 2U);
  EXPECT_THAT(text, HasSubstr("signal 6"));
}

TEST_F(TortureTest, NoticesAPartialArchive) {
  ExpectBad(OneAllocation([](World& w) { WriteFile(w.Path("a.log.tar.gz"), "part"); }),
            "a partial archive has the name a.log.tar.gz");
}

TEST_F(TortureTest, NoticesATemporaryFileLeftBehind) {
  ExpectBad(OneAllocation([](World& w) { WriteFile(w.Path(".lum-archive-1"), "part"); }),
            ".lum-archive-1 was left behind");
}

TEST_F(TortureTest, NoticesAFileTouched) {
  ExpectBad(OneAllocation([](World& w) { AppendFile(w.Path("a.log"), "more"); }),
            "a.log was touched");
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

// --- Excuses ---

TEST(Excuses, ExcuseNothingOfOurOwn) {
  static FaultRecord record;  // of the process, from here on
  RecordFaultsIn(&record);
  FailingMalloc fault;
  fault.Arm(1);
  EXPECT_FALSE(Allocate());
  EXPECT_GT(record.fault.depth, 0);
  EXPECT_EQ(FindExcuse("it ended the process", record), nullptr);
  EXPECT_EQ(FindExcuse("it answered, with other requests than usual", record), nullptr);
}

}  // namespace
}  // namespace lumtest
