// The engine's four in-memory transfers: every option, release, copy and log line, in order.

#include <cstring>
#include <functional>
#include <limits>
#include <ostream>
#include <thread>

#include "CurlEasy.h"
#include "ServiceTest.h"
#include "recording/Latch.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kUrl = "https://backend.example:8443/v1/x?y=z";
const Lines kLines = {"Content-Type: application/json", "X-Auth-Token: t"};

class TransferTest : public ServiceTest {};

// --- Get ---

TEST_F(TransferTest, GetWithNothingSetIsThisAndNoMore) {
  const HttpResult result = Engine().Get(kUrl, {});

  EXPECT_EQ(result.code, 200);
  EXPECT_EQ(result.body, "");
  EXPECT_THAT(
      recorder.Events(),
      ElementsAre("memset_s 4096 0 4096", "curl_easy_init", "CURLOPT_URL " + kUrl, "CURLOPT_POST 0",
                  "CURLOPT_WRITEFUNCTION function", "CURLOPT_WRITEDATA pointer",
                  "CURLOPT_NOSIGNAL 1", "CURLOPT_ERRORBUFFER 4096 zero bytes",
                  "CURLOPT_CONNECTTIMEOUT 4", "CURLOPT_TIMEOUT 4", "CURLOPT_SSL_VERIFYPEER 0",
                  "CURLOPT_SSL_VERIFYHOST 0", "curl_easy_perform", "CURLINFO_RESPONSE_CODE",
                  "curl_easy_cleanup"));
}

TEST_F(TransferTest, GetWithEverythingSetBindsBeforeTls) {
  UseCertificate();
  client.SetBindInterface("eth1");
  client.SetDomainIp("10.0.0.5");
  client.SetLimitSpeed(1000);
  Forget();
  recorder.NextPerform(Answer(404, "nothing here"));

  const HttpResult result = Engine().Get(kUrl, kLines);

  EXPECT_EQ(result.code, 404);
  EXPECT_EQ(result.body, "nothing here");
  EXPECT_THAT(
      recorder.Events(),
      ElementsAre(
          "memset_s 4096 0 4096", "curl_easy_init",
          "curl_slist_append Content-Type: application/json", "curl_slist_append X-Auth-Token: t",
          "CURLOPT_HTTPHEADER [Content-Type: application/json][X-Auth-Token: t]",
          "CURLOPT_URL " + kUrl, "CURLOPT_POST 0", "CURLOPT_WRITEFUNCTION function",
          "CURLOPT_WRITEDATA pointer", "CURLOPT_NOSIGNAL 1", "CURLOPT_ERRORBUFFER 4096 zero bytes",
          "CURLOPT_CONNECTTIMEOUT 4", "CURLOPT_TIMEOUT 4", "log 3 SetInterface: Set interface=eth1",
          "CURLOPT_INTERFACE eth1", "CURLOPT_SSL_VERIFYPEER 0", "CURLOPT_SSL_VERIFYHOST 0",
          "CURLOPT_CAINFO /ca.pem", "CURLOPT_SSLCERT /client.pem", "CURLOPT_SSLKEY /client.key",
          "CURLOPT_SSLKEYTYPE PEM", "CURLOPT_SSLCERTTYPE PEM", "CURLOPT_KEYPASSWD secret",
          "curl_easy_perform", "CURLINFO_RESPONSE_CODE",
          "curl_slist_free_all [Content-Type: application/json][X-Auth-Token: t]",
          "curl_easy_cleanup"));
}

TEST_F(TransferTest, FailedGetLogsThenReplacesTheBodyThenReleasesTheHandle) {
  recorder.NextPerform(Broken(CURLE_OPERATION_TIMEDOUT, 206, "too slow", {"partial"}));

  const HttpResult result = Engine().Get(kUrl, kLines);

  EXPECT_EQ(result.code, 206);
  EXPECT_EQ(result.body, "GET failed for: too slow .");
  EXPECT_EQ(recorder.Events(),
            Failing(GetEvents(kUrl, kLines),
                    "log 1 Get: GET failed for strerror 28, resOps: 28, code: 206, errorBuf: "
                    "too slow"));
  EXPECT_THAT(Logs(), ElementsAre(EngineLog(
                          1, "Get", "GET failed for %s, resOps: %d, code: %ld, errorBuf: %s",
                          {"strerror 28", "28", "206", "too slow"})));
}

TEST_F(TransferTest, GetWithoutAHandleLogsAndPerformsNothing) {
  recorder.FailInit();

  const HttpResult result = Engine().Get(kUrl, kLines);

  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, "");
  EXPECT_THAT(recorder.Events(), ElementsAre("memset_s 4096 0 4096", "curl_easy_init",
                                             "log 1 Get: GET curl init failed"));
  EXPECT_THAT(Logs(), ElementsAre(EngineLog(1, "Get", "GET curl init failed")));
}

// --- Put ---

TEST_F(TransferTest, PutWithNothingSetHasNoNosignal) {
  const HttpResult result = Engine().Put(kUrl, "body", {});

  EXPECT_EQ(result.code, 200);
  EXPECT_THAT(recorder.Events(),
              ElementsAre("memset_s 4096 0 4096", "curl_easy_init", "CURLOPT_URL " + kUrl,
                          "CURLOPT_CUSTOMREQUEST PUT", "CURLOPT_POSTFIELDS pointer",
                          "CURLOPT_POSTFIELDSIZE 4", "CURLOPT_WRITEFUNCTION function",
                          "CURLOPT_WRITEDATA pointer", "CURLOPT_ERRORBUFFER 4096 zero bytes",
                          "CURLOPT_CONNECTTIMEOUT 4", "CURLOPT_TIMEOUT 4",
                          "CURLOPT_SSL_VERIFYPEER 0", "CURLOPT_SSL_VERIFYHOST 0",
                          "curl_easy_perform", "CURLINFO_RESPONSE_CODE", "curl_easy_cleanup"));
  EXPECT_EQ(recorder.Transfers().at(0).body, "body");
}

TEST_F(TransferTest, PutWithEverythingSetBindsBehindTls) {
  UseCertificate();
  client.SetBindInterface("eth1");
  client.SetDomainIp("10.0.0.5");
  client.SetLimitSpeed(1000);
  Forget();
  recorder.NextPerform(Answer(204));

  const HttpResult result = Engine().Put(kUrl, "", kLines);

  EXPECT_EQ(result.code, 204);
  EXPECT_THAT(
      recorder.Events(),
      ElementsAre(
          "memset_s 4096 0 4096", "curl_easy_init",
          "curl_slist_append Content-Type: application/json", "curl_slist_append X-Auth-Token: t",
          "CURLOPT_HTTPHEADER [Content-Type: application/json][X-Auth-Token: t]",
          "CURLOPT_URL " + kUrl, "CURLOPT_CUSTOMREQUEST PUT", "CURLOPT_POSTFIELDS pointer",
          "CURLOPT_POSTFIELDSIZE 0", "CURLOPT_WRITEFUNCTION function", "CURLOPT_WRITEDATA pointer",
          "CURLOPT_ERRORBUFFER 4096 zero bytes", "CURLOPT_CONNECTTIMEOUT 4", "CURLOPT_TIMEOUT 4",
          "CURLOPT_SSL_VERIFYPEER 0", "CURLOPT_SSL_VERIFYHOST 0", "CURLOPT_CAINFO /ca.pem",
          "CURLOPT_SSLCERT /client.pem", "CURLOPT_SSLKEY /client.key", "CURLOPT_SSLKEYTYPE PEM",
          "CURLOPT_SSLCERTTYPE PEM", "CURLOPT_KEYPASSWD secret",
          "log 3 SetInterface: Set interface=eth1", "CURLOPT_INTERFACE eth1", "curl_easy_perform",
          "CURLINFO_RESPONSE_CODE",
          "curl_slist_free_all [Content-Type: application/json][X-Auth-Token: t]",
          "curl_easy_cleanup"));
}

TEST_F(TransferTest, PutSendsZeroBytesToo) {
  const std::string body("a\0b", 3);

  Engine().Put(kUrl, body, kLines);

  EXPECT_EQ(recorder.Events(), PutEvents(kUrl, 3, kLines));
  EXPECT_EQ(recorder.Transfers().at(0).body, body);
}

TEST_F(TransferTest, FailedPutLogsThenReplacesTheBodyThenReleasesTheHandle) {
  recorder.NextPerform(Broken(CURLE_RECV_ERROR, 503, "reset"));

  const HttpResult result = Engine().Put(kUrl, "body", kLines);

  EXPECT_EQ(result.code, 503);
  EXPECT_EQ(result.body, "PUT failed for: reset .");
  EXPECT_EQ(
      recorder.Events(),
      Failing(PutEvents(kUrl, 4, kLines),
              "log 1 Put: PUT failed for strerror 56, resOps: 56, code: 503, errorBuf: reset"));
  EXPECT_THAT(Logs(), ElementsAre(EngineLog(
                          1, "Put", "PUT failed for %s, resOps: %d, code: %ld, errorBuf: %s",
                          {"strerror 56", "56", "503", "reset"})));
}

TEST_F(TransferTest, PutWithoutAHandleLogsAndPerformsNothing) {
  recorder.FailInit();

  const HttpResult result = Engine().Put(kUrl, "body", kLines);

  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, "");
  EXPECT_THAT(recorder.Events(), ElementsAre("memset_s 4096 0 4096", "curl_easy_init",
                                             "log 1 Put: PUT curl init failed"));
  EXPECT_THAT(Logs(), ElementsAre(EngineLog(1, "Put", "PUT curl init failed")));
}

// --- Post of raw data ---

TEST_F(TransferTest, RawPostWithNothingSetIsThisAndNoMore) {
  const char data[] = "a\0b";

  const HttpResult result = Engine().Post(kUrl, data, 3, Lines());

  EXPECT_EQ(result.code, 200);
  EXPECT_THAT(recorder.Events(),
              ElementsAre("memset_s 4096 0 4096", "curl_easy_init", "CURLOPT_URL " + kUrl,
                          "CURLOPT_POST 1", "CURLOPT_POSTFIELDS pointer", "CURLOPT_POSTFIELDSIZE 3",
                          "CURLOPT_WRITEFUNCTION function", "CURLOPT_WRITEDATA pointer",
                          "CURLOPT_NOSIGNAL 1", "CURLOPT_ERRORBUFFER 4096 zero bytes",
                          "CURLOPT_CONNECTTIMEOUT 4", "CURLOPT_TIMEOUT 4",
                          "CURLOPT_SSL_VERIFYPEER 0", "CURLOPT_SSL_VERIFYHOST 0",
                          "curl_easy_perform", "CURLINFO_RESPONSE_CODE", "curl_easy_cleanup"));
  EXPECT_EQ(recorder.Transfers().at(0).body, std::string("a\0b", 3));
  EXPECT_EQ(recorder.Transfers().at(0).pointers.at(CURLOPT_POSTFIELDS), data)
      << "the data was copied";
}

TEST_F(TransferTest, RawPostWithEverythingSetBindsBeforeTls) {
  UseCertificate();
  client.SetBindInterface("eth1");
  client.SetDomainIp("10.0.0.5");
  client.SetLimitSpeed(1000);
  Forget();

  Engine().Post(kUrl, "data", 4, kLines);

  EXPECT_THAT(
      recorder.Events(),
      ElementsAre(
          "memset_s 4096 0 4096", "curl_easy_init",
          "curl_slist_append Content-Type: application/json", "curl_slist_append X-Auth-Token: t",
          "CURLOPT_HTTPHEADER [Content-Type: application/json][X-Auth-Token: t]",
          "CURLOPT_URL " + kUrl, "CURLOPT_POST 1", "CURLOPT_POSTFIELDS pointer",
          "CURLOPT_POSTFIELDSIZE 4", "CURLOPT_WRITEFUNCTION function", "CURLOPT_WRITEDATA pointer",
          "CURLOPT_NOSIGNAL 1", "CURLOPT_ERRORBUFFER 4096 zero bytes", "CURLOPT_CONNECTTIMEOUT 4",
          "CURLOPT_TIMEOUT 4", "log 3 SetInterface: Set interface=eth1", "CURLOPT_INTERFACE eth1",
          "CURLOPT_SSL_VERIFYPEER 0", "CURLOPT_SSL_VERIFYHOST 0", "CURLOPT_CAINFO /ca.pem",
          "CURLOPT_SSLCERT /client.pem", "CURLOPT_SSLKEY /client.key", "CURLOPT_SSLKEYTYPE PEM",
          "CURLOPT_SSLCERTTYPE PEM", "CURLOPT_KEYPASSWD secret", "curl_easy_perform",
          "CURLINFO_RESPONSE_CODE",
          "curl_slist_free_all [Content-Type: application/json][X-Auth-Token: t]",
          "curl_easy_cleanup"));
}

TEST_F(TransferTest, RawPostOfLengthZeroPostsAnEmptyBody) {
  Engine().Post(kUrl, "unread", 0, kLines);

  EXPECT_EQ(recorder.Events(), PostEvents(kUrl, 0, kLines, "4"));
  EXPECT_EQ(recorder.Transfers().at(0).body, "");
}

TEST_F(TransferTest, FailedRawPostLogsThenReplacesTheBodyThenReleasesTheHandle) {
  recorder.NextPerform(Broken(CURLE_SEND_ERROR, 100, "reset", {"ignored"}));

  const HttpResult result = Engine().Post(kUrl, "data", 4, kLines);

  EXPECT_EQ(result.code, 100);
  EXPECT_EQ(result.body, "POST failed for: reset .");
  EXPECT_EQ(
      recorder.Events(),
      Failing(PostEvents(kUrl, 4, kLines, "4"),
              "log 1 Post: POST failed for strerror 55, resOps: 55, code: 100, errorBuf: reset"));
  EXPECT_THAT(Logs(), ElementsAre(EngineLog(
                          1, "Post", "POST failed for %s, resOps: %d, code: %ld, errorBuf: %s",
                          {"strerror 55", "55", "100", "reset"})));
}

TEST_F(TransferTest, RawPostWithoutAHandleLogsAndPerformsNothing) {
  recorder.FailInit();

  const HttpResult result = Engine().Post(kUrl, "data", 4, kLines);

  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, "");
  EXPECT_THAT(recorder.Events(), ElementsAre("memset_s 4096 0 4096", "curl_easy_init",
                                             "log 1 Post: POST curl init failed"));
  EXPECT_THAT(Logs(), ElementsAre(EngineLog(1, "Post", "POST curl init failed")));
}

// --- Post of a string ---

TEST_F(TransferTest, StringPostTakesItsTimeLimitFromTheCall) {
  const HttpResult result = Engine().Post(kUrl, std::string("body\0!", 6), Lines(), 17);

  EXPECT_EQ(result.code, 200);
  EXPECT_THAT(recorder.Events(),
              ElementsAre("memset_s 4096 0 4096", "curl_easy_init", "CURLOPT_URL " + kUrl,
                          "CURLOPT_POST 1", "CURLOPT_POSTFIELDS pointer", "CURLOPT_POSTFIELDSIZE 6",
                          "CURLOPT_WRITEFUNCTION function", "CURLOPT_WRITEDATA pointer",
                          "CURLOPT_NOSIGNAL 1", "CURLOPT_ERRORBUFFER 4096 zero bytes",
                          "CURLOPT_CONNECTTIMEOUT 4", "CURLOPT_TIMEOUT 17",
                          "CURLOPT_SSL_VERIFYPEER 0", "CURLOPT_SSL_VERIFYHOST 0",
                          "curl_easy_perform", "CURLINFO_RESPONSE_CODE", "curl_easy_cleanup"));
  EXPECT_EQ(recorder.Transfers().at(0).body, std::string("body\0!", 6));
}

TEST_F(TransferTest, StringPostWithEverythingSetBindsBeforeTls) {
  UseCertificate();
  client.SetBindInterface("eth1");
  client.SetDomainIp("10.0.0.5");
  client.SetLimitSpeed(1000);
  Forget();

  Engine().Post(kUrl, std::string(), kLines, 5);

  EXPECT_THAT(
      recorder.Events(),
      ElementsAre(
          "memset_s 4096 0 4096", "curl_easy_init",
          "curl_slist_append Content-Type: application/json", "curl_slist_append X-Auth-Token: t",
          "CURLOPT_HTTPHEADER [Content-Type: application/json][X-Auth-Token: t]",
          "CURLOPT_URL " + kUrl, "CURLOPT_POST 1", "CURLOPT_POSTFIELDS pointer",
          "CURLOPT_POSTFIELDSIZE 0", "CURLOPT_WRITEFUNCTION function", "CURLOPT_WRITEDATA pointer",
          "CURLOPT_NOSIGNAL 1", "CURLOPT_ERRORBUFFER 4096 zero bytes", "CURLOPT_CONNECTTIMEOUT 4",
          "CURLOPT_TIMEOUT 5", "log 3 SetInterface: Set interface=eth1", "CURLOPT_INTERFACE eth1",
          "CURLOPT_SSL_VERIFYPEER 0", "CURLOPT_SSL_VERIFYHOST 0", "CURLOPT_CAINFO /ca.pem",
          "CURLOPT_SSLCERT /client.pem", "CURLOPT_SSLKEY /client.key", "CURLOPT_SSLKEYTYPE PEM",
          "CURLOPT_SSLCERTTYPE PEM", "CURLOPT_KEYPASSWD secret", "curl_easy_perform",
          "CURLINFO_RESPONSE_CODE",
          "curl_slist_free_all [Content-Type: application/json][X-Auth-Token: t]",
          "curl_easy_cleanup"));
}

TEST_F(TransferTest, StringPostHandsTheLargestTimeLimitOnUnchanged) {
  Engine().Post(kUrl, std::string("b"), kLines, 0xFFFFFFFF);

  EXPECT_EQ(recorder.Events(), PostEvents(kUrl, 1, kLines, "4294967295"));
}

TEST_F(TransferTest, FailedStringPostLogsThenReplacesTheBodyThenReleasesTheHandle) {
  recorder.NextPerform(Broken(CURLE_RECV_ERROR, 200, "", {"partial"}));

  const HttpResult result = Engine().Post(kUrl, std::string("body"), kLines, 5);

  EXPECT_EQ(result.code, 200);
  EXPECT_EQ(result.body, "POST failed for:  .");
  EXPECT_EQ(recorder.Events(),
            Failing(PostEvents(kUrl, 4, kLines, "5"),
                    "log 1 Post: POST failed for strerror 56, resOps: 56, code: 200, errorBuf: "));
  EXPECT_THAT(Logs(), ElementsAre(EngineLog(
                          1, "Post", "POST failed for %s, resOps: %d, code: %ld, errorBuf: %s",
                          {"strerror 56", "56", "200", ""})));
}

TEST_F(TransferTest, StringPostWithoutAHandleLogsAndPerformsNothing) {
  recorder.FailInit();

  const HttpResult result = Engine().Post(kUrl, std::string("body"), kLines, 5);

  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, "");
  EXPECT_THAT(recorder.Events(), ElementsAre("memset_s 4096 0 4096", "curl_easy_init",
                                             "log 1 Post: POST curl init failed"));
  EXPECT_THAT(Logs(), ElementsAre(EngineLog(1, "Post", "POST curl init failed")));
}

// --- What all of them share ---

struct Kind {
  const char* name;
  std::function<HttpResult(LumCurlOrvOpsPrivate&, const Lines&)> run;
  const char* prefix;
};

void PrintTo(const Kind& kind, std::ostream* out) {
  *out << kind.name;
}

class EveryTransfer : public ServiceTest, public ::testing::WithParamInterface<Kind> {
 protected:
  HttpResult Run(const Lines& lines = kLines) { return GetParam().run(Engine(), lines); }
};

INSTANTIATE_TEST_SUITE_P(
    Kinds, EveryTransfer,
    ::testing::Values(Kind{"Get",
                           [](LumCurlOrvOpsPrivate& engine, const Lines& lines) {
                             return engine.Get(kUrl, lines);
                           },
                           "GET failed for: "},
                      Kind{"Put",
                           [](LumCurlOrvOpsPrivate& engine, const Lines& lines) {
                             return engine.Put(kUrl, "body", lines);
                           },
                           "PUT failed for: "},
                      Kind{"RawPost",
                           [](LumCurlOrvOpsPrivate& engine, const Lines& lines) {
                             return engine.Post(kUrl, "data", 4, lines);
                           },
                           "POST failed for: "},
                      Kind{"StringPost",
                           [](LumCurlOrvOpsPrivate& engine, const Lines& lines) {
                             return engine.Post(kUrl, std::string("body"), lines, 5);
                           },
                           "POST failed for: "}),
    [](const ::testing::TestParamInfo<Kind>& instance) { return instance.param.name; });

TEST_P(EveryTransfer, CollectsTheWholeBodyFromItsPieces) {
  Script script = Answer(200);
  script.chunks = {"one ", std::string(70000, 'x'), std::string("\0\xFF", 2)};
  recorder.NextPerform(script);

  EXPECT_EQ(Run().body, "one " + std::string(70000, 'x') + std::string("\0\xFF", 2));
}

TEST_P(EveryTransfer, RunsSideBySideWithAnotherOfTheSameObject) {
  Latch both(2);
  Script script = Answer(200);
  script.during = [&both](const Transfer&) { EXPECT_TRUE(both.CountDownAndWait()); };
  recorder.NextPerform(script);
  recorder.NextPerform(script);

  RunBoth(
      both, [this] { Run(); }, [this] { Run(); });
}

TEST_P(EveryTransfer, DiscardsAPartialBodyOnATransportFailure) {
  recorder.NextPerform(Broken(CURLE_PARTIAL_FILE, 200, "transfer closed", {"part", "ial"}));

  const HttpResult result = Run();

  EXPECT_EQ(result.code, 200);
  EXPECT_EQ(result.body, std::string(GetParam().prefix) + "transfer closed .");
}

TEST_P(EveryTransfer, HandsBackEveryStatusWithItsBody) {
  for (int status = 100; status <= 599; ++status) {
    recorder.NextPerform(Answer(status, "body"));
    const HttpResult result = Run();
    EXPECT_EQ(result.code, status);
    EXPECT_EQ(result.body, "body");
  }
  EXPECT_THAT(recorder.Logs(), IsEmpty()) << "a status is no failure of the transfer";
}

TEST_P(EveryTransfer, TruncatesTheStatusToThirtyTwoBits) {
  recorder.NextPerform(Answer(0x1000000C9));

  EXPECT_EQ(Run().code, 0xC9);
}

TEST_P(EveryTransfer, SetsNoHeaderListForAnEmptyOne) {
  Run(Lines());

  EXPECT_THAT(recorder.EventsWithout({"CURLOPT_URL"}),
              ::testing::Not(::testing::Contains(::testing::AnyOf(
                  ::testing::StartsWith("curl_slist"), ::testing::StartsWith("CURLOPT_HTTP")))));
  EXPECT_EQ(recorder.Transfers().at(0).pointers.count(CURLOPT_HTTPHEADER), 0U);
}

TEST_P(EveryTransfer, LeavesTheCallersHeaderListAlone) {
  const Lines lines = {"B: 2", "A: ", "", "no colon", "B: 2"};
  Lines given = lines;

  Run(given);

  EXPECT_EQ(given, lines);
  EXPECT_THAT(recorder.Transfers().at(0).headers,
              ElementsAre("B: 2", "A;", "", "no colon", "B: 2"));
}

TEST_P(EveryTransfer, KeepsALineWhoseValueIsEmptyInTheRequest) {
  // libcurl would leave "Name: " out; "Name;" is its word for a header without a value.
  Run({"X-Auth-Token: ", "Accept:", "Tail: ;", "X-Blanks: \t ", "X-Value: a: "});

  EXPECT_THAT(recorder.Transfers().at(0).headers,
              ElementsAre("X-Auth-Token;", "Accept:", "Tail: ;", "X-Blanks;", "X-Value: a: "));
}

TEST_P(EveryTransfer, ZeroesItsErrorBufferBeforeItHasAHandle) {
  Run();

  const Events events = recorder.Events();
  ASSERT_GE(events.size(), 2U);
  EXPECT_EQ(events[0], "memset_s 4096 0 4096");
  EXPECT_EQ(events[1], "curl_easy_init");
}

TEST_P(EveryTransfer, ReadsItsTimeLimitsFromTheObject) {
  Engine().connectTimeout = 11;
  Engine().requestTimeout = 12;

  Run();

  const Transfer transfer = recorder.Transfers().at(0);
  EXPECT_EQ(transfer.numbers.at(CURLOPT_CONNECTTIMEOUT), 11);
  EXPECT_EQ(transfer.numbers.at(CURLOPT_TIMEOUT),
            std::string(GetParam().name) == "StringPost" ? 5 : 12);
}

TEST_P(EveryTransfer, NeitherPinsTheHostNorCapsTheSpeed) {
  client.SetDomainIp("10.0.0.5");
  client.SetLimitSpeed(1);

  Run();

  const Transfer transfer = recorder.Transfers().at(0);
  EXPECT_EQ(transfer.pointers.count(CURLOPT_RESOLVE), 0U);
  EXPECT_EQ(transfer.numbers.count(CURLOPT_MAX_SEND_SPEED_LARGE), 0U);
}

TEST_P(EveryTransfer, LeavesTheStreamOfTheNextUploadAlone) {
  Engine().SetFp(stderr);

  Run();

  EXPECT_EQ(Engine().uploadFp, stderr);
}

TEST_P(EveryTransfer, GivesItsHandleBackWhenItsErrorTextIsEmpty) {
  recorder.NextPerform(Broken(CURLE_GOT_NOTHING, 0, ""));

  EXPECT_EQ(Run().body, std::string(GetParam().prefix) + " .");
}

TEST_P(EveryTransfer, TakesTheLongestErrorTextWhole) {
  const std::string text(4095, 'e');
  recorder.NextPerform(Broken(CURLE_SSL_CONNECT_ERROR, 0, text));

  EXPECT_EQ(Run().body, GetParam().prefix + text + " .");
  EXPECT_EQ(recorder.Logs().at(0).arguments.at(3), text);
}

// --- The write callback ---

TEST_F(TransferTest, WriteCallbackRefusesNullPointers) {
  HttpResult result;
  char data[] = "x";

  EXPECT_EQ(lumhttp::WriteToString(nullptr, 1, 1, &result), 0U);
  EXPECT_EQ(lumhttp::WriteToString(data, 1, 1, nullptr), 0U);
  EXPECT_EQ(lumhttp::WriteToString(nullptr, 1, 1, nullptr), 0U);
  EXPECT_EQ(result.body, "");
}

TEST_F(TransferTest, WriteCallbackAppendsSizeTimesCountBytes) {
  HttpResult result;
  result.body = "<";
  char data[] = "abcdefgh";

  EXPECT_EQ(lumhttp::WriteToString(data, 2, 3, &result), 6U);
  EXPECT_EQ(lumhttp::WriteToString(data, 1, 0, &result), 0U);
  EXPECT_EQ(lumhttp::WriteToString(data, 0, 5, &result), 0U);
  EXPECT_EQ(result.body, "<abcdef");
}

TEST_F(TransferTest, WriteCallbackIsTheOneThatTheTransfersSet) {
  Engine().Get(kUrl, {});

  EXPECT_EQ(recorder.Transfers().at(0).pointers.at(CURLOPT_WRITEFUNCTION),
            reinterpret_cast<void*>(&lumhttp::WriteToString));
}

// --- The certificate and its pass phrase on their way to libcurl ---

TEST_F(TransferTest, CertificateWithoutAPassPhraseIsNotOffered) {
  client.SetSslInfo("/ca.pem", "/client.pem", "/client.key", nullptr, 0);
  Forget();

  Engine().Get(kUrl, kLines);

  EXPECT_EQ(recorder.Events(), GetEvents(kUrl, kLines));
}

TEST_F(TransferTest, EmptyPathsAreHandedOnOnceAPassPhraseIsStored) {
  unsigned char none[] = "";
  client.SetSslInfo("", "", "", none, 0);

  Engine().Get(kUrl, {});

  const Transfer transfer = recorder.Transfers().at(0);
  for (const CURLoption option :
       {CURLOPT_CAINFO, CURLOPT_SSLCERT, CURLOPT_SSLKEY, CURLOPT_KEYPASSWD}) {
    ASSERT_EQ(transfer.texts.count(option), 1U) << option;
    EXPECT_EQ(transfer.texts.at(option), "");
  }
}

TEST_F(TransferTest, PassPhraseServesEveryRequestAndIsNotWiped) {
  UseCertificate("secret");

  Engine().Get(kUrl, {});
  Engine().Put(kUrl, "", {});
  Engine().Post(kUrl, "", 0, Lines());

  for (const Transfer& transfer : recorder.Transfers()) {
    EXPECT_EQ(transfer.texts.at(CURLOPT_KEYPASSWD), "secret");
  }
  EXPECT_EQ(recorder.Transfers().size(), 3U);
  EXPECT_EQ(std::memcmp(Engine().keyPassword, "secret\0", 7), 0);
}

TEST_F(TransferTest, PassPhraseThatFillsItsBufferIsHandedOnWithATerminator) {
  UseCertificate(std::string(2048, 'p'));

  Engine().Get(kUrl, {});

  EXPECT_EQ(recorder.Transfers().at(0).texts.at(CURLOPT_KEYPASSWD), std::string(2048, 'p'));
  const Events wipes = {"memcpy_s 2049 2048", "CURLOPT_KEYPASSWD " + std::string(2048, 'p'),
                        "memset_s 2049 0 2049"};
  EXPECT_THAT(recorder.Events(), ::testing::IsSupersetOf(wipes))
      << "the terminated copy must be wiped again";
  EXPECT_EQ(Engine().keyPassword[2047], 'p');
}

}  // namespace
}  // namespace lumtest
