// Requests of several threads on one object: one at a time.

#include <atomic>

#include "HttpTest.h"
#include "recording/Latch.h"

namespace lumtest {
namespace {

using Pair = std::pair<Method, Method>;

class TwoThreads : public HttpTest, public ::testing::WithParamInterface<Pair> {};

// The first transfer does not end before the second thread stands at the lock, or in a transfer of
// its own, which is the mistake.
TEST_P(TwoThreads, NeverOverlapOnOneObject) {
  Latch secondIsHere;
  std::atomic<int> locks{0};
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  Script script = Answer(200, "{}");
  script.during = [&](const Transfer&) {
    if (++inside > 1) {
      overlapped = true;
      secondIsHere.CountDown();
    }
    EXPECT_TRUE(secondIsHere.Wait());
    --inside;
  };
  recorder.NextPerform(script);
  recorder.NextPerform(script);
  recorder.WatchMutex(&Engine().m_mutex);
  recorder.onLock = [&] {
    if (++locks == 2) {
      secondIsHere.CountDown();
    }
  };
  int codes[] = {0, 0};
  RunBoth(
      secondIsHere, [&] { (client.*GetParam().first.call)(kUrl, "{}", false, codes[0]); },
      [&] { (client.*GetParam().second.call)(kUrl, "{}", false, codes[1]); });
  EXPECT_FALSE(overlapped);
  EXPECT_EQ(codes[0], 200);
  EXPECT_EQ(codes[1], 200);

  // Whole requests, one after the other: from before the handle is made until it is gone.
  const Events events = recorder.EventsWithout({"CURL", "curl_slist", "memset_s", "curl_easy_p"});
  EXPECT_THAT(events,
              ::testing::ElementsAre("lock", "curl_easy_init", "curl_easy_cleanup", "unlock",
                                     "lock", "curl_easy_init", "curl_easy_cleanup", "unlock"));
}

INSTANTIATE_TEST_SUITE_P(Mixed, TwoThreads,
                         ::testing::Values(Pair(kGet, kGet), Pair(kPost, kPost), Pair(kGet, kPost)),
                         [](const auto& test) {
                           return std::string(test.param.first.name) + test.param.second.name;
                         });

}  // namespace
}  // namespace lumtest
