// Get and Post: every call of theirs in order, and what the engine makes of it. What they return
// and log in the end is EndingsTest's, and memory that runs out MemoryTest's.

#include <system_error>

#include "HttpTest.h"
#include "recording/FailingAllocation.h"

namespace lumtest {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

// --- The complete lists of calls

const std::string kJsonLines = "[Content-Type: application/json][charsets: utf-8]";

const Events kDefaultLines = {"curl_slist_append Content-Type: application/json",
                              "curl_slist_append charsets: utf-8"};

const Events kShared = {"CURLOPT_WRITEFUNCTION function",
                        "CURLOPT_WRITEDATA pointer",
                        "memset_s 4096 0 4096",
                        "CURLOPT_ERRORBUFFER 4096 zero bytes",
                        "CURLOPT_CONNECTTIMEOUT 5",
                        "CURLOPT_TIMEOUT 5",
                        "CURLOPT_NOSIGNAL 1",
                        "CURLOPT_IPRESOLVE 1"};

const Events kNoTls = {"CURLOPT_SSL_VERIFYPEER 0", "CURLOPT_SSL_VERIFYHOST 0"};

const Events kTls = {"CURLOPT_SSL_VERIFYPEER 1",
                     "CURLOPT_SSL_VERIFYHOST 0",
                     "CURLOPT_CAINFO /tls/ca.pem",
                     "CURLOPT_SSLCERT /tls/client.pem",
                     "CURLOPT_SSLKEY /tls/client.key",
                     "CURLOPT_SSLKEYTYPE PEM",
                     "CURLOPT_SSLCERTTYPE PEM",
                     "CURLOPT_KEYPASSWD secret",
                     "memset_s 2048 0 2048"};

// The calls of one request with these header lines; `log` is that of its failure.
Events RequestEvents(const Method& method, const Events& appended, const std::string& list,
                     const Events& tls, const Events& log = {}) {
  return Events{"lock", "curl_easy_init"} + appended +
         Events{"CURLOPT_USERAGENT QVcurlHttp/0.1.2", "CURLOPT_HTTPHEADER " + list,
                "CURLOPT_URL http://server.example/path?q=1"} +
         method.options + kShared + tls + Events{"curl_easy_perform", "CURLINFO_RESPONSE_CODE"} +
         log + Events{"curl_slist_free_all " + list, "curl_easy_cleanup", "unlock"};
}

TEST_P(HttpRequest, WithoutTlsCallsThisAndNothingElse) {
  PrepareSsl();
  recorder.WatchMutex(&Engine().m_mutex);
  recorder.NextPerform(Answer(200, "{}"));
  Call(GetParam());
  ExpectEvents(RequestEvents(GetParam(), kDefaultLines, kJsonLines, kNoTls));
}

TEST_P(HttpRequest, WithTlsCallsThisAndNothingElse) {
  PrepareSsl();
  recorder.WatchMutex(&Engine().m_mutex);
  recorder.NextPerform(Answer(200, "{}"));
  Call(GetParam(), kUrl, true);
  ExpectEvents(RequestEvents(GetParam(), kDefaultLines, kJsonLines, kTls));
}

TEST_P(HttpRequest, WithAHeaderOfTheCallersCallsThisAndNothingElse) {
  client.SetHeaders("X-One: 1; B: 2, C: 3\\r\\nD: 4");
  recorder.WatchMutex(&Engine().m_mutex);
  recorder.NextPerform(Answer(200, "{}"));
  Call(GetParam());
  const std::string line = "X-One: 1; B: 2, C: 3\\r\\nD: 4";
  const Events appended = {Log(3, GetParam().name, "curl set headers, headers length=28"),
                           "curl_slist_append " + line};
  ExpectEvents(RequestEvents(GetParam(), appended, "[" + line + "]", kNoTls));
}

TEST_P(HttpRequest, ThatFailsLogsBeforeItReleases) {
  recorder.WatchMutex(&Engine().m_mutex);
  recorder.NextPerform(Broken(CURLE_COULDNT_CONNECT, 0, "refused"));
  Call(GetParam());
  const Events log = {Log(1, GetParam().name,
                          Message(" failed for strerror 7, ret: 7, code: 0, errorBuf: refused"))};
  ExpectEvents(RequestEvents(GetParam(), kDefaultLines, kJsonLines, kNoTls, log));
}

TEST_P(HttpRequest, WithoutAHandleLogsWhileItHoldsTheLock) {
  recorder.WatchMutex(&Engine().m_mutex);
  recorder.failInit = true;
  Call(GetParam());
  ExpectEvents(
      {"lock", "curl_easy_init", Log(1, GetParam().name, Message(" curl init failed")), "unlock"});
}

// --- One behaviour each

TEST_P(HttpRequest, SendsTheUserAgentOfItsEngine) {
  Engine().m_userAgent = "other/1";
  Call(GetParam());
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_USERAGENT), "other/1");
}

TEST_P(HttpRequest, AsksForTheUrlAsGiven) {
  Call(GetParam(), "HTTP://h.example:81/%20 b?c=%d#e");
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_URL), "HTTP://h.example:81/%20 b?c=%d#e");
}

// The list is handed over as the caller wrote it; libcurl would then leave the line out.
TEST_P(HttpRequest, KeepsTheCallersHeaderWhenItsValueIsEmpty) {
  client.SetHeaders("X-Trace: ");
  Call(GetParam());
  EXPECT_THAT(recorder.Events(), Contains("CURLOPT_HTTPHEADER [X-Trace: ]"));
  EXPECT_THAT(TheTransfer().headers, ElementsAre("X-Trace;"));
}

TEST_P(HttpRequest, KeepsTheCallersHeaderUntilItIsReplaced) {
  client.SetHeaders("X-One: 1");
  Call(GetParam());
  client.SetHeaders("");  // refused
  Call(GetParam());
  client.SetHeaders("X-Two: 2");
  Call(GetParam());
  const auto transfers = recorder.Transfers();
  ASSERT_EQ(transfers.size(), 3u);
  EXPECT_THAT(transfers[0].headers, ElementsAre("X-One: 1"));
  EXPECT_THAT(transfers[1].headers, ElementsAre("X-One: 1"));
  EXPECT_THAT(transfers[2].headers, ElementsAre("X-Two: 2"));
}

TEST_F(HttpTest, GetSendsNothingOfItsSecondText) {
  Call(kGet, kUrl, false, "never read");
  EXPECT_EQ(TheTransfer().body, "");
  EXPECT_THAT(recorder.Events(), Not(Contains(::testing::HasSubstr("never read"))));
}

TEST_F(HttpTest, PostSendsTheCallersBytesWithoutACopy) {
  const std::string body("{\"a\": \"\0\xff\"}", 11);
  Call(kPost, kUrl, false, body);
  EXPECT_EQ(TheTransfer().pointers.at(CURLOPT_POSTFIELDS), body.c_str());
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_POSTFIELDSIZE), 11);
  EXPECT_EQ(TheTransfer().body, body);
}

TEST_F(HttpTest, PostOfAnEmptyBodySendsLengthZero) {
  Call(kPost, kUrl, false, "");
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_POSTFIELDSIZE), 0);
  EXPECT_NE(TheTransfer().pointers.at(CURLOPT_POSTFIELDS), nullptr);
}

// --- What comes back

TEST_P(HttpRequest, ThatFailsTellsLibcurlsReasonInPlaceOfWhatHadArrived) {
  recorder.NextPerform(
      Broken(CURLE_OPERATION_TIMEDOUT, 206, "took 100%s too long", {"{\"half", "\":"}));
  const HttpResult result = CallEngine(GetParam());
  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, Message(" failed for: took 100%s too long ."));
}

TEST_P(HttpRequest, WithoutAHandleHasAnEmptyBody) {
  recorder.failInit = true;
  EXPECT_EQ(CallEngine(GetParam()).body, "");
}

// --- Failures

TEST_P(HttpRequest, RefusesAnEmptyUrlAndLeavesTheResponseCode) {
  EXPECT_TRUE(Call(GetParam(), "").IsNull());
  EXPECT_EQ(responseCode, 7);
  ExpectEvents({Log(1, GetParam().name, Message(" url is empty"))});
}

// Every subset of the three files that lacks one; before it locks.
TEST_P(HttpRequest, NeedsAllThreeFilesForTls) {
  const Events log = {Log(1, GetParam().name,
                          Message("(http://server.example/path?q=1) use ssl, but certs is empty"))};
  for (int given = 0; given < 7; ++given) {
    client.SetSslInfo(given & 1 ? kCa : "", given & 2 ? kCertificate : "", given & 4 ? kKey : "",
                      nullptr, 0);
    Forget();
    recorder.WatchMutex(&Engine().m_mutex, true);
    responseCode = 7;
    EXPECT_TRUE(Call(GetParam(), kUrl, true).IsNull());
    EXPECT_EQ(responseCode, -1);
    ExpectEvents(log);
    EXPECT_EQ((Engine().*GetParam().engineCall)(kUrl, "", true).body, "");
  }
}

TEST_P(HttpRequest, LetsASystemErrorOfTheMutexThrough) {
  PrepareSsl();
  recorder.WatchMutex(&Engine().m_mutex, true);
  EXPECT_THROW(Call(GetParam(), kUrl, true), std::system_error);
  EXPECT_EQ(responseCode, 7);
  EXPECT_THAT(recorder.Events(), IsEmpty());
  EXPECT_STREQ(reinterpret_cast<const char*>(Engine().m_keyPassword), "secret");
}

TEST_P(HttpRequest, AnOptionThatLibcurlCannotStoreLeavesTheResponseCode) {
  recorder.WatchMutex(&Engine().m_mutex);
  recorder.FailOption(CURLOPT_URL, CURLE_OUT_OF_MEMORY);
  EXPECT_THROW(Call(GetParam()), std::bad_alloc);
  EXPECT_EQ(responseCode, 7);
  EXPECT_EQ(recorder.Events().back(), "unlock");
}

TEST_P(HttpRequest, ABadAllocOfTheBodyReachesTheCallerAfterEverythingIsReleased) {
  recorder.WatchMutex(&Engine().m_mutex);
  Script script = Answer(200, std::string(1000, ' ') + "{}");
  std::unique_ptr<FailingAllocation> failing;
  script.during = [&failing](const Transfer&) { failing = std::make_unique<FailingAllocation>(1); };
  recorder.NextPerform(script);
  EXPECT_THROW(Call(GetParam()), std::bad_alloc);
  failing.reset();
  EXPECT_EQ(responseCode, 7);
  ExpectEvents(RequestEvents(GetParam(), kDefaultLines, kJsonLines, kNoTls));

  // The object is as good as before.
  recorder.NextPerform(Answer(200, "{}"));
  Call(GetParam());
  EXPECT_EQ(responseCode, 200);
}

INSTANTIATE_TEST_SUITE_P(Both, HttpRequest, ::testing::Values(kGet, kPost),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace lumtest
