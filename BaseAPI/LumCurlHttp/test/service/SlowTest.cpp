// Limits that are none: answers that come late, waited for all at once. That every operation ends
// at the limit that it has is LumFaultLimitTest's and LumFaultSlowTest's.

#include <chrono>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "ServiceLiveTest.h"
#include "support/Threads.h"

namespace lumtest {
namespace {

// Longer than the connect limits of reports and the limits that operations have of their own.
constexpr std::chrono::seconds kLate{6};

class SlowTest : public ServiceLiveTest {
 protected:
  SlowTest() {
    server.SetHandler(
        [](const WireRequest&) { return WireReply().Pause(kLate).Send(WireAnswer(200, "[1]")); });
  }

  const std::string path = directory.Write("f", "data");
};

TEST_F(SlowTest, AnAnswerAfterSixSecondsIsInTimeForALimitOfNoneAndForTheLargest) {
  const LumJson::Value document = Json(R"({"accessId": "a document of some length"})");
  std::vector<std::function<int(LumCurlOrvOps&)>> calls;
  // A limit above libcurl's greatest sets none, either.
  for (const unsigned int limit : {0U, std::numeric_limits<unsigned int>::max()}) {
    calls.emplace_back([&, limit](LumCurlOrvOps& c) {
      return c.ReportData(server.Url(), document, "t", limit, "");
    });
    calls.emplace_back(
        [&, limit](LumCurlOrvOps& c) { return c.UploadLog(server.Url(), path, limit); });
  }
  OnThreads(static_cast<int>(calls.size()), [&calls](int i) {
    LumCurlOrvOps own;
    own.CurlGlobalInit();
    EXPECT_EQ(calls[static_cast<std::size_t>(i)](own), 0);
  });
  expectedOutput = "[1][1]";  // of the uploads
}

}  // namespace
}  // namespace lumtest
