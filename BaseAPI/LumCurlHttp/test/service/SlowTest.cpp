// Time limits, waited for all at once: every case has a thread and a client of its own.

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "LiveFixture.h"
#include "wire/Ports.h"

namespace lumtest {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr int kFailed = -10000;

// What one case came to.
struct Outcome {
  double took = 0;  // seconds
  int result = 0;   // of an int operation; the status of a JSON one
  std::string lastError;
};

struct Case {
  const char* name;
  double limit;  // seconds
  std::function<int(LumCurlOrvOps&)> run;
  int result;
};

class SlowTest : public ::testing::Test {
 protected:
  SlowTest() {
    // Hears every request out and never answers.
    silent.SetHandler([](const WireRequest&) { return WireReply().Stall(); });
    late.SetHandler([](const WireRequest&) {
      return WireReply().Pause(seconds(6)).Send(WireAnswer(200, "[1]"));
    });
    drip.SetHandler([](const WireRequest&) {
      return WireReply(WireHead(200, {"Content-Length: 100000"}))
          .Drip(std::string(100000, ' '), 10, std::chrono::milliseconds(100));
    });
  }

  LogCapture log;
  WireServer silent;     // reads, never answers
  WireServer late;       // answers after six seconds
  WireServer drip;       // answers at once, but never comes to an end
  SilentPort blackHole;  // never lets anybody connect
  TempDir directory;
  const std::string path = directory.Write("f", "data");
};

int StatusOfGet(LumCurlOrvOps& client, const std::string& url) {
  int status = -7;
  EXPECT_TRUE(client.Get(url, {}, status).IsNull());
  return status;
}

int StatusOfPost(LumCurlOrvOps& client, const std::string& url) {
  int status = -7;
  EXPECT_TRUE(client.Post(url, "body", {}, status).IsNull());
  return status;
}

int NullIsZero(const LumJson::Value& value) {
  return value.IsNull() ? 0 : 1;
}

TEST_F(SlowTest, EveryOperationEndsAtItsLimitAndNotBefore) {
  const std::string stalled = silent.Url();
  const std::string unreachable = blackHole.Url();
  const LumJson::Value document = Json(R"({"accessId": "a document of some length"})");

  const std::vector<Case> cases = {
      // The whole transfer.
      {"Get", 4, [&](LumCurlOrvOps& c) { return StatusOfGet(c, stalled); }, 0},
      {"GetLogAddress", 4,
       [&](LumCurlOrvOps& c) { return NullIsZero(c.GetLogAddress(stalled, "a", "t", "f")); }, 0},
      {"RefreshToken", 4,
       [&](LumCurlOrvOps& c) { return NullIsZero(c.RefreshToken(stalled, document, "t")); }, 0},
      {"GzipWorker", 4,
       [&](LumCurlOrvOps& c) { return c.ReportDataWithGzip(stalled, document, "t", "id"); },
       kFailed},
      {"GzipIgnoredNumber", 4,
       [&](LumCurlOrvOps& c) { return c.ReportDataWithGzip(stalled, document, "t", 60U); },
       kFailed},
      {"Post", 5, [&](LumCurlOrvOps& c) { return StatusOfPost(c, stalled); }, 0},
      {"GetToken", 5, [&](LumCurlOrvOps& c) { return NullIsZero(c.GetToken(stalled, document)); },
       0},
      {"Report", 5, [&](LumCurlOrvOps& c) { return c.ReportData(stalled, document, "t", ""); },
       kFailed},
      {"ReportOfSevenSeconds", 7,
       [&](LumCurlOrvOps& c) { return c.ReportData(stalled, document, "t", 7, ""); }, kFailed},
      {"ReportOfTwoSeconds", 2,
       [&](LumCurlOrvOps& c) { return c.ReportData(stalled, document, "t", 2, ""); }, kFailed},
      {"UploadOfThreeSeconds", 3, [&](LumCurlOrvOps& c) { return c.UploadLog(stalled, path, 3); },
       kFailed},
      {"UploadWithLinesOfTwelveSeconds", 12,
       [&](LumCurlOrvOps& c) { return c.UploadLog(stalled, path, 12, {"X: 1"}); }, kFailed},
      {"VideoOfSixSeconds", 6,
       [&](LumCurlOrvOps& c) { return c.UploadVideoFile(stalled, path, 6); }, kFailed},
      {"SignedUpload", 60, [&](LumCurlOrvOps& c) { return c.UploadLog(stalled, path); }, kFailed},
      // The limit is for the whole transfer, not for its silence.
      {"GetTokenOfADrip", 5,
       [&](LumCurlOrvOps& c) { return NullIsZero(c.GetToken(drip.Url(), document)); }, 0},
      // A late answer.
      {"LatePost", 5, [&](LumCurlOrvOps& c) { return StatusOfPost(c, late.Url()); }, 0},
      {"LateReport", 6,
       [&](LumCurlOrvOps& c) { return c.ReportData(late.Url(), document, "t", 0, ""); }, 0},
      {"LateUpload", 6, [&](LumCurlOrvOps& c) { return c.UploadLog(late.Url(), path, 0); }, 0},
      // A limit above libcurl's greatest sets none, either.
      {"LateReportWithTheLargestLimit", 6,
       [&](LumCurlOrvOps& c) {
         return c.ReportData(late.Url(), document, "t", std::numeric_limits<unsigned int>::max(),
                             "");
       },
       0},
      {"LateUploadWithTheLargestLimit", 6,
       [&](LumCurlOrvOps& c) {
         return c.UploadLog(late.Url(), path, std::numeric_limits<unsigned int>::max());
       },
       0},
      // Connecting alone.
      {"ConnectOfReport", 4,
       [&](LumCurlOrvOps& c) { return c.ReportData(unreachable, document, "t", 30, ""); }, kFailed},
      {"ConnectOfPost", 4, [&](LumCurlOrvOps& c) { return StatusOfPost(c, unreachable); }, 0},
      {"ConnectOfGet", 4, [&](LumCurlOrvOps& c) { return StatusOfGet(c, unreachable); }, 0},
      {"ConnectOfUpload", 10, [&](LumCurlOrvOps& c) { return c.UploadLog(unreachable, path, 40); },
       kFailed},
      {"ConnectOfSignedUpload", 10,
       [&](LumCurlOrvOps& c) { return c.UploadLog(unreachable, path); }, kFailed},
      {"ConnectOfUploadWithAShorterLimit", 5,
       [&](LumCurlOrvOps& c) { return c.UploadLog(unreachable, path, 5); }, kFailed},
  };

  std::vector<Outcome> outcomes(cases.size());
  std::vector<std::thread> threads;
  CaptureStdout output;
  for (std::size_t i = 0; i < cases.size(); ++i) {
    threads.emplace_back([&, i] {
      LumCurlOrvOps client;
      client.CurlGlobalInit();
      const steady_clock::time_point start = steady_clock::now();
      outcomes[i].result = cases[i].run(client);
      outcomes[i].took = std::chrono::duration<double>(steady_clock::now() - start).count();
      outcomes[i].lastError = client.GetLastErrorBody();
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(output.Stop(), "[1][1]") << "the late answers to two uploads";

  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].name);
    EXPECT_EQ(outcomes[i].result, cases[i].result);
    EXPECT_GE(outcomes[i].took, cases[i].limit - 0.05);
    EXPECT_LT(outcomes[i].took, cases[i].limit + 10);
    if (cases[i].result == kFailed && !outcomes[i].lastError.empty()) {
      EXPECT_THAT(outcomes[i].lastError, ::testing::ContainsRegex("timed out|Timeout"));
    }
  }
  EXPECT_TRUE(std::any_of(outcomes.begin(), outcomes.end(),
                          [](const Outcome& outcome) { return !outcome.lastError.empty(); }));
}

}  // namespace
}  // namespace lumtest
