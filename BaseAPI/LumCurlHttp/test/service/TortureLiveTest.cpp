// Memory that runs out at every point of a real request: of the library's own allocations and of
// libcurl's. Nothing may crash, and nothing may stay open.

#include <curl/curl.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>

#include "LiveFixture.h"
#include "support/Alloc.h"
#include "support/ProcessState.h"

namespace lumtest {
namespace {

// --- libcurl's allocations, of which one may be made to fail on this thread ---

thread_local std::size_t t_curlLeft = 0;  // 0: none fails
thread_local bool t_curlFailed = false;

bool CurlAllocationFails() {
  if (t_curlLeft == 0 || --t_curlLeft != 0) {
    return false;
  }
  t_curlFailed = true;
  return true;
}

void* CurlMalloc(std::size_t size) {
  return CurlAllocationFails() ? nullptr : std::malloc(size);
}

void CurlFree(void* block) {
  std::free(block);
}

void* CurlRealloc(void* block, std::size_t size) {
  return CurlAllocationFails() ? nullptr : std::realloc(block, size);
}

char* CurlStrdup(const char* text) {
  return CurlAllocationFails() ? nullptr : strdup(text);
}

void* CurlCalloc(std::size_t count, std::size_t size) {
  return CurlAllocationFails() ? nullptr : std::calloc(count, size);
}

// Held for as long as the program runs, so that every client's initialisation joins this one.
class CurlEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    ASSERT_EQ(curl_global_init_mem(CURL_GLOBAL_ALL, CurlMalloc, CurlFree, CurlRealloc, CurlStrdup,
                                   CurlCalloc),
              CURLE_OK);
  }
  void TearDown() override { curl_global_cleanup(); }
};

[[maybe_unused]] const ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new CurlEnvironment);

// --- The operations ---

struct Operation {
  const char* name;
  std::function<void(LumCurlOrvOps&, const std::string& url, const TempDir&)> run;
};

void PrintTo(const Operation& operation, std::ostream* out) {
  *out << operation.name;
}

const char kDocument[] = R"({"accessId": "an identifier of some length", "text": "and a text"})";

class TortureLiveTest : public LiveTest, public ::testing::WithParamInterface<Operation> {
 protected:
  TortureLiveTest() {
    server.SetHandler(Always(200, reply));
    directory.Write("a.log", "content");
    directory.MakeDir("logs");
    directory.Write("logs/a", "content");
    client.SetBindInterface("lo");
  }

  // Runs the operation once; whether it threw std::bad_alloc.
  bool Throws() {
    try {
      GetParam().run(client, server.Url("/x"), directory);
    } catch (const std::bad_alloc&) {
      return true;
    }
    return false;
  }

  // Uploads that came off wrote their replies, and nobody anything else.
  void TearDown() override {
    const std::string output = StopOutput();
    std::size_t end = 0;
    while (output.compare(end, reply.size(), reply) == 0) {
      end += reply.size();
    }
    EXPECT_EQ(output.substr(end), "");
    expectedOutput = output;
    LiveTest::TearDown();
  }

  const std::string reply = R"({"token": "a token of more than a few characters"})";
};

INSTANTIATE_TEST_SUITE_P(
    Operations, TortureLiveTest,
    ::testing::Values(
        Operation{"ReportData",
                  [](LumCurlOrvOps& c, const std::string& url, const TempDir&) {
                    c.ReportData(url, Json(kDocument), "t", "topic");
                  }},
        Operation{"ReportDataWithGzip",
                  [](LumCurlOrvOps& c, const std::string& url, const TempDir&) {
                    c.ReportDataWithGzip(url, Json(kDocument), "");
                  }},
        Operation{"RefreshToken",
                  [](LumCurlOrvOps& c, const std::string& url, const TempDir&) {
                    c.RefreshToken(url, Json(kDocument), "t");
                  }},
        Operation{"Get",
                  [](LumCurlOrvOps& c, const std::string& url, const TempDir&) {
                    int status = 0;
                    c.Get(url, {"X: 1", "Y: "}, status);
                  }},
        Operation{"GetLogAddress", [](LumCurlOrvOps& c, const std::string& url,
                                      const TempDir&) { c.GetLogAddress(url, "a", "t", "f"); }},
        Operation{"UploadLog", [](LumCurlOrvOps& c, const std::string& url,
                                  const TempDir& d) { c.UploadLog(url, d.Path("a.log")); }},
        Operation{"UploadLogFileForCompress",
                  [](LumCurlOrvOps& c, const std::string& url, const TempDir& d) {
                    c.UploadLogFileForCompress(url, d.Path("a.log"));
                  }},
        Operation{"UploadLogDirPathForCompress",
                  [](LumCurlOrvOps& c, const std::string& url, const TempDir& d) {
                    c.UploadLogDirPathForCompress(url, d.Path("logs"));
                  }}),
    [](const ::testing::TestParamInfo<Operation>& instance) { return instance.param.name; });

TEST_P(TortureLiveTest, EveryAllocationOfTheLibraryMayFail) {
  EXPECT_FALSE(Throws());
  ASSERT_TRUE(server.WaitIdle());
  const std::size_t before = OpenDescriptors();

  std::size_t nth = 0;
  bool failed = true;
  while (failed) {
    FailNextNew(++nth);
    Throws();
    failed = NewHasFailed();
    FailNextNew(0);
    log.Clear();
  }
  EXPECT_GT(nth, 3U);

  ASSERT_TRUE(server.WaitIdle());
  EXPECT_EQ(OpenDescriptors(), before) << ::testing::PrintToString(DescribeDescriptors());
  EXPECT_FALSE(Throws()) << "the client is as good as before";
}

TEST_P(TortureLiveTest, EveryAllocationOfLibcurlMayFail) {
  EXPECT_FALSE(Throws());
  ASSERT_TRUE(server.WaitIdle());
  const std::size_t before = OpenDescriptors();

  std::size_t nth = 0;
  t_curlFailed = true;
  while (t_curlFailed) {
    t_curlFailed = false;
    t_curlLeft = ++nth;
    Throws();
    t_curlLeft = 0;
    log.Clear();
  }
  EXPECT_GT(nth, 20U);

  ASSERT_TRUE(server.WaitIdle());
  EXPECT_EQ(OpenDescriptors(), before) << ::testing::PrintToString(DescribeDescriptors());
  EXPECT_FALSE(Throws()) << "the client is as good as before";
}

}  // namespace
}  // namespace lumtest
