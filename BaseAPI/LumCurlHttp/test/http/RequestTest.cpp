// Get and Post: every call of theirs in order, every option, every way to fail.

#include <stdexcept>
#include <system_error>

#include "HttpTest.h"
#include "recording/FailingAllocation.h"

namespace lumtest {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

const Events kJsonLines = {"curl_slist_append Content-Type: application/json",
                           "curl_slist_append charsets: utf-8"};

const Events kBeforeTls = {"CURLOPT_WRITEFUNCTION function",
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

const Events kPerform = {"curl_easy_perform", "CURLINFO_RESPONSE_CODE"};

Events Released(const std::string& list) {
  return {"curl_slist_free_all " + list, "curl_easy_cleanup", "unlock"};
}

const char kJsonList[] = "[Content-Type: application/json][charsets: utf-8]";

// --- The complete lists of calls

TEST_F(HttpTest, GetWithoutTlsCallsThisAndNothingElse) {
  recorder.WatchMutex(&Engine().m_mutex);
  recorder.NextPerform(Reply("{}"));
  Call(kGet);
  EXPECT_EQ(
      recorder.Events(),
      Joined({{"lock", "curl_easy_init"},
              kJsonLines,
              {"CURLOPT_USERAGENT QVcurlHttp/0.1.2", std::string("CURLOPT_HTTPHEADER ") + kJsonList,
               "CURLOPT_URL http://server.example/path?q=1", "CURLOPT_HTTPGET 1"},
              kBeforeTls,
              kNoTls,
              kPerform,
              Released(kJsonList)}));
  ExpectNothingKept();
}

TEST_F(HttpTest, GetWithTlsCallsThisAndNothingElse) {
  PrepareSsl();
  recorder.WatchMutex(&Engine().m_mutex);
  recorder.NextPerform(Reply("{}"));
  Call(kGet, kUrl, true);
  EXPECT_EQ(
      recorder.Events(),
      Joined({{"lock", "curl_easy_init"},
              kJsonLines,
              {"CURLOPT_USERAGENT QVcurlHttp/0.1.2", std::string("CURLOPT_HTTPHEADER ") + kJsonList,
               "CURLOPT_URL http://server.example/path?q=1", "CURLOPT_HTTPGET 1"},
              kBeforeTls,
              kTls,
              kPerform,
              Released(kJsonList)}));
  ExpectNothingKept();
}

TEST_F(HttpTest, PostWithoutTlsCallsThisAndNothingElse) {
  recorder.WatchMutex(&Engine().m_mutex);
  recorder.NextPerform(Reply("{}"));
  Call(kPost, kUrl, false, "{\"a\":1}");
  EXPECT_EQ(
      recorder.Events(),
      Joined({{"lock", "curl_easy_init"},
              kJsonLines,
              {"CURLOPT_USERAGENT QVcurlHttp/0.1.2", std::string("CURLOPT_HTTPHEADER ") + kJsonList,
               "CURLOPT_URL http://server.example/path?q=1", "CURLOPT_POST 1",
               "CURLOPT_POSTFIELDS pointer", "CURLOPT_POSTFIELDSIZE 7"},
              kBeforeTls,
              kNoTls,
              kPerform,
              Released(kJsonList)}));
  ExpectNothingKept();
}

TEST_F(HttpTest, PostWithTlsAndAHeaderCallsThisAndNothingElse) {
  PrepareSsl();
  client.SetHeaders("X-One: 1");
  recorder.WatchMutex(&Engine().m_mutex);
  recorder.NextPerform(Reply("{}"));
  Call(kPost, kUrl, true, "{\"a\":1}");
  EXPECT_EQ(recorder.Events(),
            Joined({{"lock", "curl_easy_init", "log 3 Post: curl set headers, headers length=8",
                     "curl_slist_append X-One: 1", "CURLOPT_USERAGENT QVcurlHttp/0.1.2",
                     "CURLOPT_HTTPHEADER [X-One: 1]", "CURLOPT_URL http://server.example/path?q=1",
                     "CURLOPT_POST 1", "CURLOPT_POSTFIELDS pointer", "CURLOPT_POSTFIELDSIZE 7"},
                    kBeforeTls,
                    kTls,
                    kPerform,
                    Released("[X-One: 1]")}));
  ExpectNothingKept();
}

TEST_F(HttpTest, GetWithAHeaderCallsThisAndNothingElse) {
  client.SetHeaders("X-One: 1");
  recorder.WatchMutex(&Engine().m_mutex);
  recorder.NextPerform(Reply("{}"));
  Call(kGet);
  EXPECT_EQ(recorder.Events(),
            Joined({{"lock", "curl_easy_init", "log 3 Get: curl set headers, headers length=8",
                     "curl_slist_append X-One: 1", "CURLOPT_USERAGENT QVcurlHttp/0.1.2",
                     "CURLOPT_HTTPHEADER [X-One: 1]", "CURLOPT_URL http://server.example/path?q=1",
                     "CURLOPT_HTTPGET 1"},
                    kBeforeTls,
                    kNoTls,
                    kPerform,
                    Released("[X-One: 1]")}));
  ExpectNothingKept();
}

TEST_P(HttpRequest, ReleasesTheSameWayWhenTheTransferFails) {
  recorder.WatchMutex(&Engine().m_mutex);
  recorder.NextPerform(Failure(CURLE_COULDNT_CONNECT, "refused"));
  Call(GetParam());
  const Events events = recorder.Events();
  ASSERT_GT(events.size(), 6u);
  EXPECT_EQ(Events(events.end() - 6, events.end()),
            Joined({kPerform,
                    {std::string("log 1 ") + GetParam().name + ": " +
                     Message(" failed for strerror 7, ret: 7, code: 0, errorBuf: refused")},
                    Released(kJsonList)}));
  ExpectNothingKept();
}

// --- One behaviour each

TEST_P(HttpRequest, NamesTheUserAgent) {
  Call(GetParam());
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_USERAGENT), "QVcurlHttp/0.1.2");
}

TEST_P(HttpRequest, SendsTheUserAgentOfItsEngine) {
  Engine().m_userAgent = "other/1";
  Call(GetParam());
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_USERAGENT), "other/1");
}

TEST_P(HttpRequest, AsksForTheUrlAsGiven) {
  Call(GetParam(), "HTTP://h.example:81/%20 b?c=%d#e");
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_URL), "HTTP://h.example:81/%20 b?c=%d#e");
}

TEST_P(HttpRequest, SaysThatItSpeaksJson) {
  Call(GetParam());
  EXPECT_THAT(TheTransfer().headers,
              ElementsAre("Content-Type: application/json", "charsets: utf-8"));
}

TEST_P(HttpRequest, SendsTheCallersHeaderInPlaceOfTheJsonOnes) {
  client.SetHeaders("Authorization: Basic eDp5");
  Call(GetParam());
  EXPECT_THAT(TheTransfer().headers, ElementsAre("Authorization: Basic eDp5"));
}

TEST_P(HttpRequest, DoesNotSplitTheCallersHeader) {
  client.SetHeaders("A: 1; B: 2, C: 3\\r\\nD: 4");
  Call(GetParam());
  EXPECT_THAT(TheTransfer().headers, ElementsAre("A: 1; B: 2, C: 3\\r\\nD: 4"));
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

TEST_P(HttpRequest, TellsTheLengthOfTheCallersHeader) {
  client.SetHeaders(std::string(300, 'h'));
  Call(GetParam());
  recorder.Reset();
  recorder.NextPerform(Reply("1"));
  Call(GetParam());
  ExpectLogs({{kEnginePath, GetParam().name, 3, "curl set headers, headers length=%d", {"300"}}});
}

TEST_P(HttpRequest, MayConnectForFiveSeconds) {
  Call(GetParam());
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_CONNECTTIMEOUT), 5);
}

TEST_P(HttpRequest, MayTakeFiveSecondsInAll) {
  Call(GetParam());
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_TIMEOUT), 5);
}

TEST_P(HttpRequest, UsesNoSignals) {
  Call(GetParam());
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_NOSIGNAL), 1);
}

TEST_P(HttpRequest, ResolvesIPv4Only) {
  Call(GetParam());
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_IPRESOLVE), CURL_IPRESOLVE_V4);
}

TEST_P(HttpRequest, VerifiesNothingWithoutTls) {
  PrepareSsl();
  Call(GetParam());
  const Transfer transfer = TheTransfer();
  EXPECT_EQ(transfer.numbers.at(CURLOPT_SSL_VERIFYPEER), 0);
  EXPECT_EQ(transfer.numbers.at(CURLOPT_SSL_VERIFYHOST), 0);
  EXPECT_EQ(transfer.texts.count(CURLOPT_CAINFO), 0u);
}

TEST_P(HttpRequest, OffersNoCertificateWithoutTls) {
  PrepareSsl();
  Call(GetParam());
  const Transfer transfer = TheTransfer();
  EXPECT_EQ(transfer.texts.count(CURLOPT_SSLCERT), 0u);
  EXPECT_EQ(transfer.texts.count(CURLOPT_SSLKEY), 0u);
  EXPECT_EQ(transfer.texts.count(CURLOPT_KEYPASSWD), 0u);
}

TEST_P(HttpRequest, VerifiesTheChainAgainstTheCaFileWithTls) {
  PrepareSsl();
  Call(GetParam(), kUrl, true);
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_SSL_VERIFYPEER), 1);
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_CAINFO), kCa);
}

TEST_P(HttpRequest, NeverComparesTheHostName) {
  PrepareSsl();
  Call(GetParam(), kUrl, true);
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_SSL_VERIFYHOST), 0);
}

TEST_P(HttpRequest, OffersTheClientCertificateWithTls) {
  PrepareSsl();
  Call(GetParam(), kUrl, true);
  const Transfer transfer = TheTransfer();
  EXPECT_EQ(transfer.texts.at(CURLOPT_SSLCERT), kCertificate);
  EXPECT_EQ(transfer.texts.at(CURLOPT_SSLCERTTYPE), "PEM");
  EXPECT_EQ(transfer.texts.at(CURLOPT_SSLKEY), kKey);
  EXPECT_EQ(transfer.texts.at(CURLOPT_SSLKEYTYPE), "PEM");
  EXPECT_EQ(transfer.texts.at(CURLOPT_KEYPASSWD), "secret");
}

TEST_P(HttpRequest, CollectsTheBodyThroughItsOwnCallback) {
  Call(GetParam());
  EXPECT_EQ(TheTransfer().pointers.at(CURLOPT_WRITEFUNCTION),
            reinterpret_cast<void*>(&lumhttp::WriteToString));
}

TEST_P(HttpRequest, CollectsABodyOfManyPieces) {
  Script script;
  std::string whole;
  for (int i = 0; i < 100; ++i) {
    script.chunks.push_back(std::to_string(i) + std::string(static_cast<std::size_t>(i) * 7, '\0'));
    whole += script.chunks.back();
  }
  recorder.NextPerform(script);
  const HttpResult result = CallEngine(GetParam());
  EXPECT_EQ(result.code, 200);
  EXPECT_EQ(result.body, whole);
}

TEST_P(HttpRequest, FollowsNoRedirects) {
  Call(GetParam());
  EXPECT_EQ(TheTransfer().numbers.count(CURLOPT_FOLLOWLOCATION), 0u);
}

TEST_F(HttpTest, GetIsAGet) {
  Call(kGet);
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_HTTPGET), 1);
}

TEST_F(HttpTest, GetSendsNothingOfItsSecondText) {
  Call(kGet, kUrl, false, "never read");
  EXPECT_EQ(TheTransfer().body, "");
  EXPECT_THAT(recorder.Events(), Not(Contains(::testing::HasSubstr("never read"))));
}

TEST_F(HttpTest, PostIsAPost) {
  Call(kPost);
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_POST), 1);
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

TEST_P(HttpRequest, HandsBackEveryStatus) {
  for (long status = 100; status < 600; ++status) {
    recorder.Reset();
    recorder.NextPerform(Reply("{\"status\":" + std::to_string(status) + "}", status));
    const LumJson::Value value = Call(GetParam());
    ASSERT_EQ(responseCode, status);
    ASSERT_EQ(value.JsonValueToString(), "{\"status\":" + std::to_string(status) + "}");
    ASSERT_THAT(recorder.Logs(), IsEmpty()) << status;
    recorder.NextPerform(Reply("body", status));
    const HttpResult result = CallEngine(GetParam());
    ASSERT_EQ(result.code, status);
    ASSERT_EQ(result.body, "body");
  }
}

TEST_P(HttpRequest, ANotFoundComesBackWithItsBodyAndNoLogLine) {
  recorder.NextPerform(Reply("no such thing", 404));
  const HttpResult result = CallEngine(GetParam());
  EXPECT_EQ(result.code, 404);
  EXPECT_EQ(result.body, "no such thing");
  ExpectLogs({});
}

TEST_P(HttpRequest, ParsesTheObjectOfASuccess) {
  recorder.NextPerform(Reply("{\"name\": \"value\"}"));
  const LumJson::Value value = Call(GetParam());
  EXPECT_EQ(value.JsonValueToString(), "{\"name\":\"value\"}");
  EXPECT_EQ(responseCode, 200);
  ExpectLogs({});
}

TEST_P(HttpRequest, ParsesTheObjectOfAServerError) {
  recorder.NextPerform(Reply("{\"error\":\"down\"}", 500));
  const LumJson::Value value = Call(GetParam());
  EXPECT_EQ(value.JsonValueToString(), "{\"error\":\"down\"}");
  EXPECT_EQ(responseCode, 500);
  ExpectLogs({});
}

TEST_P(HttpRequest, TakesAnyJsonValueForADocument) {
  for (const char* text : {"[1,2]", "true", "12", "{}"}) {
    recorder.NextPerform(Reply(text));
    EXPECT_EQ(Call(GetParam()).JsonValueToString(), text);
    EXPECT_EQ(responseCode, 200);
  }
  recorder.NextPerform(Reply("null"));
  EXPECT_TRUE(Call(GetParam()).IsNull());
  EXPECT_EQ(responseCode, 200);
  ExpectLogs({});
}

TEST_P(HttpRequest, APageWhereJsonIsDueIsAFailure) {
  recorder.NextPerform(Reply("<html>100%s</html>"));
  const LumJson::Value value = Call(GetParam());
  EXPECT_TRUE(value.IsNull());
  EXPECT_EQ(responseCode, -1);
  ExpectLogs({{kHttpPath, GetParam().name, 1, "json parse(%s) failed", {"<html>100%s</html>"}}});
}

TEST_P(HttpRequest, APageWithAnErrorStatusIsAFailureToo) {
  recorder.NextPerform(Reply("<html>", 502));
  Call(GetParam());
  EXPECT_EQ(responseCode, -1);
  ExpectLogs({{kHttpPath, GetParam().name, 1, "json parse(%s) failed", {"<html>"}}});
}

TEST_P(HttpRequest, AnEmptyBodyIsNotJson) {
  const LumJson::Value value = Call(GetParam());
  EXPECT_TRUE(value.IsNull());
  EXPECT_EQ(responseCode, -1);
  ExpectLogs({{kHttpPath, GetParam().name, 1, "json parse(%s) failed", {""}}});
}

TEST_P(HttpRequest, LeavesTheCallersTextsAlone) {
  const std::string url = kUrl;
  const std::string body = "{\"a\":1}";
  (client.*GetParam().call)(url, body, false, responseCode);
  EXPECT_EQ(url, kUrl);
  EXPECT_EQ(body, "{\"a\":1}");
}

// --- Failures

TEST_P(HttpRequest, RefusesAnEmptyUrlAndLeavesTheResponseCode) {
  const LumJson::Value value = Call(GetParam(), "");
  EXPECT_TRUE(value.IsNull());
  EXPECT_EQ(responseCode, 7);
  ExpectLogs({{kHttpPath, GetParam().name, 1, Message(" url is empty"), {}}});
  EXPECT_EQ(recorder.Events().size(), 1u);
}

TEST_P(HttpRequest, WithoutItsPrivatePartSaysTheSame) {
  const WithoutPrivate<LumCurlHttp> without(client);
  const LumJson::Value value = Call(GetParam());
  EXPECT_TRUE(value.IsNull());
  EXPECT_EQ(responseCode, 7);
  ExpectLogs({{kHttpPath, GetParam().name, 1, Message(" url is empty"), {}}});
  EXPECT_EQ(recorder.Events().size(), 1u);
}

// Every subset of the three files that lacks one.
TEST_P(HttpRequest, NeedsAllThreeFilesForTls) {
  for (int given = 0; given < 7; ++given) {
    client.SetSslInfo(given & 1 ? kCa : "", given & 2 ? kCertificate : "", given & 4 ? kKey : "",
                      nullptr, 0);
    recorder.Reset();
    const LumJson::Value value = Call(GetParam(), kUrl, true);
    EXPECT_TRUE(value.IsNull());
    EXPECT_EQ(responseCode, -1);
    ExpectLogs(
        {{kEnginePath, GetParam().name, 1, Message("(%s) use ssl, but certs is empty"), {kUrl}}});
    EXPECT_EQ(recorder.Events().size(), 1u) << given;
    const HttpResult result = CallEngine(GetParam(), true);
    EXPECT_EQ(result.code, -1);
    EXPECT_EQ(result.body, "");
    responseCode = 7;
  }
}

TEST_P(HttpRequest, LooksForTheFilesBeforeItLocks) {
  recorder.WatchMutex(&Engine().m_mutex, true);
  Call(GetParam(), kUrl, true);
  EXPECT_EQ(responseCode, -1);
}

TEST_P(HttpRequest, FailsWhenThereIsNoHandle) {
  recorder.WatchMutex(&Engine().m_mutex);
  recorder.FailInit();
  const HttpResult result = CallEngine(GetParam());
  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, "");
  ExpectLogs({{kEnginePath, GetParam().name, 1, Message(" curl init failed"), {}}});
  EXPECT_THAT(recorder.Events(), ElementsAre("lock", "curl_easy_init",
                                             std::string("log 1 ") + GetParam().name + ": " +
                                                 Message(" curl init failed"),
                                             "unlock"));
}

TEST_P(HttpRequest, AMissingHandleIsAMinusOneWithoutAParse) {
  recorder.FailInit();
  EXPECT_TRUE(Call(GetParam()).IsNull());
  EXPECT_EQ(responseCode, -1);
  EXPECT_EQ(recorder.Logs().size(), 1u);
}

TEST_P(HttpRequest, AFailedTransferTellsLibcurlsReasonTwice) {
  recorder.NextPerform(Failure(CURLE_OPERATION_TIMEDOUT, "took 100%s too long", 206));
  const HttpResult result = CallEngine(GetParam());
  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, Message(" failed for: took 100%s too long ."));
  ExpectLogs({{kEnginePath,
               GetParam().name,
               1,
               Message(" failed for %s, ret: %d, code: %ld, errorBuf: %s"),
               {"strerror 28", "28", "206", "took 100%s too long"}}});
}

TEST_P(HttpRequest, AFailedTransferWithoutAReasonEndsInBlankAndStop) {
  recorder.NextPerform(Failure(CURLE_COULDNT_CONNECT, ""));
  EXPECT_EQ(CallEngine(GetParam()).body, Message(" failed for:  ."));
}

TEST_P(HttpRequest, AFailedTransferDropsWhatHadArrived) {
  Script script = Failure(CURLE_PARTIAL_FILE, "cut", 200);
  script.chunks = {"{\"half", "\":"};
  recorder.NextPerform(script);
  const HttpResult result = CallEngine(GetParam());
  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, Message(" failed for: cut ."));
}

TEST_P(HttpRequest, AFailedTransferIsNullAndMinusOneWithTheEnginesLineAlone) {
  Script script = Failure(CURLE_PARTIAL_FILE, "", 200);
  script.chunks = {"{}"};
  recorder.NextPerform(script);
  EXPECT_TRUE(Call(GetParam()).IsNull());
  EXPECT_EQ(responseCode, -1);
  ExpectLogs({{kEnginePath,
               GetParam().name,
               1,
               Message(" failed for %s, ret: %d, code: %ld, errorBuf: %s"),
               {"strerror 18", "18", "200", ""}}});
}

TEST_P(HttpRequest, EveryCodeOfLibcurlButZeroIsAFailure) {
  for (int code = 1; code < CURL_LAST; ++code) {
    recorder.Reset();
    recorder.NextPerform(Failure(static_cast<CURLcode>(code), "text", 200));
    ASSERT_EQ(CallEngine(GetParam()).code, -1) << code;
    ASSERT_EQ(recorder.Logs().at(0).arguments.at(1), std::to_string(code));
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

// --- Memory that runs out

// What libcurl could not store makes std::bad_alloc, whichever option it was.
TEST_P(HttpRequest, AnOptionThatLibcurlCannotStoreIsABadAlloc) {
  const std::vector<CURLoption> options = {
      CURLOPT_USERAGENT, CURLOPT_HTTPHEADER, CURLOPT_URL,         CURLOPT_WRITEFUNCTION,
      CURLOPT_CAINFO,    CURLOPT_SSLCERT,    CURLOPT_SSLKEY,      CURLOPT_SSLKEYTYPE,
      CURLOPT_NOSIGNAL,  CURLOPT_TIMEOUT,    CURLOPT_SSLCERTTYPE, CURLOPT_KEYPASSWD};
  for (const CURLoption option : options) {
    PrepareSsl();
    recorder.WatchMutex(&Engine().m_mutex);
    recorder.FailOption(option, CURLE_OUT_OF_MEMORY);
    EXPECT_THROW(Call(GetParam(), kUrl, true), std::bad_alloc) << option;
    EXPECT_EQ(responseCode, 7);
    ExpectNothingKept();
    EXPECT_EQ(LastEvent(), "unlock");
    EXPECT_THAT(recorder.Events(), Not(Contains("curl_easy_perform")));
  }
}

TEST_P(HttpRequest, AnOptionThatLibcurlRefusesOtherwiseIsLeftToTheTransfer) {
  recorder.FailOption(CURLOPT_URL, CURLE_BAD_FUNCTION_ARGUMENT);
  recorder.NextPerform(Failure(CURLE_URL_MALFORMAT, "No URL set"));
  EXPECT_EQ(CallEngine(GetParam()).body, Message(" failed for: No URL set ."));
}

TEST_P(HttpRequest, AHeaderLineThatCannotBeStoredIsABadAlloc) {
  for (const int line : {1, 2}) {
    recorder.Reset();
    recorder.WatchMutex(&Engine().m_mutex);
    recorder.FailAppend(line);
    EXPECT_THROW(Call(GetParam()), std::bad_alloc);
    ExpectNothingKept();
    EXPECT_EQ(LastEvent(), "unlock");
  }
  client.SetHeaders("X-One: 1");
  recorder.FailAppend(1);
  EXPECT_THROW(Call(GetParam()), std::bad_alloc);
  ExpectNothingKept();
}

TEST_P(HttpRequest, ABadAllocOfTheBodyReachesTheCallerAfterEverythingIsReleased) {
  recorder.WatchMutex(&Engine().m_mutex);
  Script script = Reply(std::string(1000, ' ') + "{}");
  std::unique_ptr<FailingAllocation> failing;
  script.during = [&failing](const Transfer&) { failing = std::make_unique<FailingAllocation>(1); };
  recorder.NextPerform(script);
  EXPECT_THROW(Call(GetParam()), std::bad_alloc);
  failing.reset();
  EXPECT_EQ(responseCode, 7);
  ExpectLogs({});
  ExpectNothingKept();
  const Events events = recorder.Events();
  ASSERT_GT(events.size(), 5u);
  EXPECT_EQ(Events(events.end() - 5, events.end()), Joined({kPerform, Released(kJsonList)}));

  // The object is as good as before.
  recorder.NextPerform(Reply("{}"));
  Call(GetParam());
  EXPECT_EQ(responseCode, 200);
}

TEST_P(HttpRequest, ALengthErrorOfTheBodyReachesTheCallerToo) {
  recorder.WatchMutex(&Engine().m_mutex);
  Script script = Reply("{}");
  script.during = [](const Transfer& transfer) {
    auto* result = static_cast<HttpResult*>(transfer.pointers.at(CURLOPT_WRITEDATA));
    result->body._M_length(result->body.max_size());  // there is no memory behind it
  };
  recorder.NextPerform(script);
  EXPECT_THROW(Call(GetParam()), std::length_error);
  ExpectNothingKept();
  EXPECT_EQ(LastEvent(), "unlock");
}

TEST_P(HttpRequest, RunsOutOfMemoryAnywhereWithoutALeak) {
  const std::string body(100, ' ');
  const auto prepare = [this] {
    recorder.Reset();
    SetSsl(client, std::string(2048, 'p'));
    client.SetHeaders("X-Header-Longer-Than-Any-Short-String: value");
    recorder.WatchMutex(&Engine().m_mutex);
    recorder.NextPerform(Reply("{\"a long enough name\":[\"a long enough text of a reply\"]}"));
    recorder.NextPerform(Failure(CURLE_COULDNT_CONNECT, "a reason that is long enough as well"));
  };
  const auto operation = [this, &body] {
    (client.*GetParam().call)(kUrl, body, true, responseCode);
    (client.*GetParam().call)(kUrl, body, false, responseCode);
  };
  const auto check = [this] {
    ExpectNothingKept();
    EXPECT_TRUE(Engine().m_mutex.try_lock());
    Engine().m_mutex.unlock();
  };
  EXPECT_GT(FailEachAllocation(prepare, operation, check), 3u);
  EXPECT_EQ(responseCode, -1);
}

INSTANTIATE_TEST_SUITE_P(Both, HttpRequest, ::testing::Values(kGet, kPost),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace lumtest
