// GetPropertyString: every call of it in order, every option, every way to fail.

#include <gmock/gmock.h>

#include <stdexcept>
#include <thread>
#include <type_traits>

#include "CurlEasy.h"
#include "LumApollo.h"
#include "LumApolloPrivate.h"
#include "recording/FailingAllocation.h"
#include "recording/Latch.h"
#include "recording/RecordingTest.h"

namespace lumtest {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

const char kPath[] = "BaseAPI/LumCurlHttp/src/LumApolloPrivate";
const char kFunction[] = "GetPropertyString";
const char kFormat[] = "POST(%s) failed for %s, rps: %d, code: %ld, errorBuf: %s";

class Apollo : public RecordingTest {
 protected:
  HttpResult Read() { return apollo.GetPropertyString(env); }

  Transfer TheTransfer() const {
    const auto transfers = recorder.Transfers();
    EXPECT_EQ(transfers.size(), 1u);
    return transfers.empty() ? Transfer() : transfers.front();
  }

  static Script Reply(const std::string& body, long status = 200) {
    Script script;
    script.status = status;
    script.chunks = {body};
    return script;
  }

  static Script Failure(CURLcode result, const std::string& errorText, long status = 0) {
    Script script;
    script.result = result;
    script.errorText = errorText;
    script.status = status;
    return script;
  }

  // Each request keeps its header list, and nothing else.
  void ExpectKeptLists(int lists) const {
    EXPECT_EQ(recorder.LiveLists(), lists);
    EXPECT_EQ(recorder.LiveHandles(), 0);
    EXPECT_EQ(recorder.LiveFiles(), 0);
  }

  LumApollo apollo;
  LumApolloEnv env{"config.example:8443", "app", "cluster", "space"};
};

const Events kCalls = {"curl_easy_init",
                       "memset_s 4096 0 4096",
                       "memset_s 4096 0 4096",
                       "curl_slist_append Content-Type: application/json",
                       "curl_slist_append charsets: utf-8",
                       "CURLOPT_HTTPHEADER [Content-Type: application/json][charsets: utf-8]",
                       "CURLOPT_URL https://config.example:8443/configs/app/cluster/space",
                       "CURLOPT_WRITEFUNCTION function",
                       "CURLOPT_WRITEDATA pointer",
                       "CURLOPT_ERRORBUFFER 4096 zero bytes",
                       "CURLOPT_CONNECTTIMEOUT 5",
                       "CURLOPT_TIMEOUT 5",
                       "CURLOPT_NOSIGNAL 1",
                       "CURLOPT_IPRESOLVE 1",
                       "CURLOPT_SSL_VERIFYPEER 0",
                       "CURLOPT_SSL_VERIFYHOST 0",
                       "curl_easy_perform",
                       "CURLINFO_RESPONSE_CODE"};

TEST_F(Apollo, CallsThisAndNothingElse) {
  recorder.NextPerform(Reply("{}"));
  const HttpResult result = Read();
  EXPECT_EQ(result.code, 200);
  EXPECT_EQ(recorder.Events(), Joined({kCalls, {"curl_easy_cleanup"}}));
  ExpectKeptLists(1);
}

TEST_F(Apollo, CallsThisAndNothingElseWhenTheTransferFails) {
  recorder.NextPerform(Failure(CURLE_COULDNT_CONNECT, "refused"));
  Read();
  EXPECT_EQ(recorder.Events(),
            Joined({kCalls,
                    {"log 1 GetPropertyString: "
                     "POST(https://config.example:8443/configs/app/cluster/space) failed for "
                     "strerror 7, rps: 7, code: 0, errorBuf: refused",
                     "curl_easy_cleanup"}}));
  ExpectKeptLists(1);
}

TEST_F(Apollo, DestructionReleasesThePrivatePart) {
  const std::size_t before = LiveNews();
  {
    const LumApollo made;
    EXPECT_EQ(LiveNews(), before + 1);
  }
  EXPECT_EQ(LiveNews(), before);
}

// --- One behaviour each

TEST_F(Apollo, AlwaysAsksOverHttps) {
  env.configServer = "http";
  Read();
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_URL), "https://http/configs/app/cluster/space");
}

TEST_F(Apollo, SaysThatItSpeaksJson) {
  Read();
  EXPECT_THAT(TheTransfer().headers,
              ElementsAre("Content-Type: application/json", "charsets: utf-8"));
}

TEST_F(Apollo, CollectsTheBodyThroughTheSharedCallback) {
  Read();
  EXPECT_EQ(TheTransfer().pointers.at(CURLOPT_WRITEFUNCTION),
            reinterpret_cast<void*>(&lumhttp::WriteToString));
}

TEST_F(Apollo, MayConnectForFiveSeconds) {
  Read();
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_CONNECTTIMEOUT), 5);
}

TEST_F(Apollo, MayTakeFiveSecondsInAll) {
  Read();
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_TIMEOUT), 5);
}

TEST_F(Apollo, UsesNoSignals) {
  Read();
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_NOSIGNAL), 1);
}

TEST_F(Apollo, ResolvesIPv4Only) {
  Read();
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_IPRESOLVE), CURL_IPRESOLVE_V4);
}

TEST_F(Apollo, NeverVerifiesTheServer) {
  Read();
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_SSL_VERIFYPEER), 0);
  EXPECT_EQ(TheTransfer().numbers.at(CURLOPT_SSL_VERIFYHOST), 0);
}

TEST_F(Apollo, NamesNoUserAgentAndNoMethod) {
  Read();
  const Transfer transfer = TheTransfer();
  EXPECT_EQ(transfer.texts.count(CURLOPT_USERAGENT), 0u);
  EXPECT_EQ(transfer.numbers.count(CURLOPT_HTTPGET), 0u);
  EXPECT_EQ(transfer.numbers.count(CURLOPT_POST), 0u);
  EXPECT_EQ(transfer.texts.count(CURLOPT_CUSTOMREQUEST), 0u);
}

// --- The URL

TEST_F(Apollo, AnEmptyClusterBecomesDefaultInTheCallersRecord) {
  env.cluster.clear();
  Read();
  EXPECT_EQ(env.cluster, "default");
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_URL),
            "https://config.example:8443/configs/app/default/space");
}

TEST_F(Apollo, NothingElseOfTheCallersRecordChanges) {
  Read();
  EXPECT_EQ(env.configServer, "config.example:8443");
  EXPECT_EQ(env.appId, "app");
  EXPECT_EQ(env.cluster, "cluster");
  EXPECT_EQ(env.namespaceName, "space");
}

TEST_F(Apollo, PercentSignsAndBlanksGoIntoTheUrlAsTheyStand) {
  env = {"%s%n", "%d", "a b", "%%20?x=1&y#z/../\xc3\xa4"};
  recorder.NextPerform(Failure(CURLE_URL_MALFORMAT, "%s"));
  Read();
  const std::string url = "https://%s%n/configs/%d/a b/%%20?x=1&y#z/../\xc3\xa4";
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_URL), url);
  ExpectLogs({{kPath, kFunction, 1, kFormat, {url, "strerror 3", "3", "0", "%s"}}});
}

TEST_F(Apollo, EmptyFieldsLeaveTheirPlaceEmpty) {
  env = {"", "", "", ""};
  Read();
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_URL), "https:///configs//default/");
}

TEST_F(Apollo, AUrlOf4095BytesFits) {
  env.namespaceName.clear();
  const std::size_t others = std::string("https://config.example:8443/configs/app/cluster/").size();
  env.namespaceName = std::string(4095 - others, 'n');
  recorder.NextPerform(Reply("{}"));
  EXPECT_EQ(Read().code, 200);
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_URL).size(), 4095u);
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_URL).back(), 'n');
  ExpectLogs({});
  ExpectKeptLists(1);
}

// The one path on which a handle is never released, which nothing else may join.
TEST_F(Apollo, AUrlOf4096BytesFailsWithoutAWordAndKeepsItsHandle) {
  const std::size_t others = std::string("https://config.example:8443/configs/app/cluster/").size();
  for (const std::size_t length : {std::size_t{4096}, std::size_t{4097}, std::size_t{100000}}) {
    recorder.Reset();
    env.namespaceName = std::string(length - others, 'n');
    const HttpResult result = Read();
    EXPECT_EQ(result.code, -1);
    EXPECT_EQ(result.body, "");
    EXPECT_THAT(recorder.Events(), ElementsAre("curl_easy_init", "memset_s 4096 0 4096"));
    EXPECT_EQ(recorder.LiveHandles(), 1);
    EXPECT_EQ(recorder.LiveLists(), 0);
  }
}

TEST_F(Apollo, AUrlThatDoesNotFitStillSetsTheDefaultCluster) {
  env.cluster.clear();
  env.appId = std::string(5000, 'a');
  Read();
  EXPECT_EQ(env.cluster, "default");
}

// --- What comes back

TEST_F(Apollo, HandsBackEveryStatusWithItsBody) {
  for (long status = 100; status < 600; ++status) {
    recorder.Reset();
    recorder.NextPerform(Reply("body of " + std::to_string(status), status));
    const HttpResult result = Read();
    ASSERT_EQ(result.code, status);
    ASSERT_EQ(result.body, "body of " + std::to_string(status));
    ASSERT_THAT(recorder.Logs(), IsEmpty()) << status;
  }
}

TEST_F(Apollo, LeavesTheBodyUnparsed) {
  const std::string text(" {\"configurations\" : {\"a\":1 }}\r\n\0not json", 42);
  recorder.NextPerform(Reply(text));
  EXPECT_EQ(Read().body, text);
}

TEST_F(Apollo, TheListOfEachRequestStays) {
  Read();
  Read();
  Read();
  ExpectKeptLists(3);
  EXPECT_THAT(recorder.Events(), Not(Contains(::testing::HasSubstr("curl_slist_free_all"))));
}

// --- Failures

TEST_F(Apollo, WithoutItsPrivatePartItFailsWithoutAWord) {
  env.cluster.clear();
  const WithoutPrivate<LumApollo> without(apollo);
  const HttpResult result = Read();
  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, "");
  EXPECT_EQ(env.cluster, "");
  EXPECT_THAT(recorder.Events(), IsEmpty());
}

TEST_F(Apollo, WithoutItsPrivatePartItCanBeDestroyed) {
  LumApolloPrivate* made = nullptr;
  {
    LumApollo other;
    made = other.d_pointer;
    other.d_pointer = nullptr;
  }
  delete made;
}

TEST_F(Apollo, FailsWhenThereIsNoHandle) {
  env.cluster.clear();
  recorder.FailInit();
  const HttpResult result = Read();
  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, "");
  EXPECT_EQ(env.cluster, "");  // not looked at yet
  ExpectLogs({{kPath, kFunction, 1, "POST curl init failed", {}}});
  EXPECT_EQ(recorder.Events().size(), 2u);
}

TEST_F(Apollo, AFailedTransferTellsLibcurlsReasonTwice) {
  recorder.NextPerform(Failure(CURLE_OPERATION_TIMEDOUT, "took too long", 206));
  const HttpResult result = Read();
  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, "POST failed for: took too long .");
  ExpectLogs({{kPath,
               kFunction,
               1,
               kFormat,
               {"https://config.example:8443/configs/app/cluster/space", "strerror 28", "28", "206",
                "took too long"}}});
}

TEST_F(Apollo, AFailedTransferWithoutAReasonEndsInBlankAndStop) {
  recorder.NextPerform(Failure(CURLE_COULDNT_CONNECT, ""));
  EXPECT_EQ(Read().body, "POST failed for:  .");
}

TEST_F(Apollo, AFailedTransferDropsWhatHadArrived) {
  Script script = Failure(CURLE_PARTIAL_FILE, "cut", 200);
  script.chunks = {"{\"half"};
  recorder.NextPerform(script);
  const HttpResult result = Read();
  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.body, "POST failed for: cut .");
}

// --- Memory that runs out

TEST_F(Apollo, AnOptionThatLibcurlCannotStoreIsABadAlloc) {
  recorder.FailOption(CURLOPT_URL, CURLE_OUT_OF_MEMORY);
  EXPECT_THROW(Read(), std::bad_alloc);
  ExpectKeptLists(1);
  EXPECT_THAT(recorder.Events(), Not(Contains("curl_easy_perform")));
}

TEST_F(Apollo, AHeaderLineThatCannotBeStoredIsABadAlloc) {
  for (const int line : {1, 2}) {
    recorder.Reset();
    recorder.FailAppend(line);
    EXPECT_THROW(Read(), std::bad_alloc);
    ExpectKeptLists(0);
  }
}

TEST_F(Apollo, ALengthErrorOfTheBodyReachesTheCaller) {
  Script script = Reply("{}");
  script.during = [](const Transfer& transfer) {
    auto* result = static_cast<HttpResult*>(transfer.pointers.at(CURLOPT_WRITEDATA));
    result->body._M_length(result->body.max_size());  // there is no memory behind it
  };
  recorder.NextPerform(script);
  EXPECT_THROW(Read(), std::length_error);
  ExpectKeptLists(1);
}

TEST_F(Apollo, RunsOutOfMemoryAnywhereWithoutALeak) {
  HttpResult result;
  const auto prepare = [this] {
    recorder.Reset();
    recorder.NextPerform(Failure(CURLE_COULDNT_CONNECT, "a reason that is long enough"));
    recorder.NextPerform(Reply("a body that does not fit into a short string"));
  };
  const auto operation = [this, &result] {
    apollo.GetPropertyString(env);
    result = apollo.GetPropertyString(env);
  };
  const auto check = [this] {
    EXPECT_EQ(recorder.LiveHandles(), 0);
    // Each list that reached a request is kept, no other.
    int reached = 0;
    for (const std::string& event : recorder.Events()) {
      reached += event.rfind("CURLOPT_HTTPHEADER", 0) == 0 ? 1 : 0;
    }
    EXPECT_EQ(recorder.LiveLists(), reached);
  };
  EXPECT_GT(FailEachAllocation(prepare, operation, check), 1u);
  EXPECT_EQ(result.body, "a body that does not fit into a short string");
}

// --- Threads

static_assert(std::is_empty<LumApolloPrivate>::value, "there is nothing to share");
static_assert(!std::is_copy_constructible<LumApollo>::value &&
                  !std::is_copy_assignable<LumApollo>::value &&
                  !std::is_move_constructible<LumApollo>::value &&
                  !std::is_move_assignable<LumApollo>::value,
              "one object owns its private part");
static_assert(!std::is_polymorphic<LumApollo>::value, "");
static_assert(sizeof(LumApollo) == sizeof(void*), "callers were compiled with this size");

TEST_F(Apollo, TheRecordHoldsItsFourTextsInOrder) {
  EXPECT_LT(&env.configServer, &env.appId);
  EXPECT_LT(&env.appId, &env.cluster);
  EXPECT_LT(&env.cluster, &env.namespaceName);
  EXPECT_EQ(sizeof(env), 4 * sizeof(std::string));
}

TEST_F(Apollo, CallsOnOneObjectRunSideBySide) {
  Latch both(2);
  for (const char* body : {"one", "two"}) {
    Script script = Reply(body);
    script.during = [&both](const Transfer&) { EXPECT_TRUE(both.CountDownAndWait()); };
    recorder.NextPerform(script);
  }
  LumApolloEnv otherEnv = {"other.example", "app", "", "space"};
  HttpResult result;
  HttpResult other;
  RunBoth(
      both, [&] { result = Read(); }, [&] { other = apollo.GetPropertyString(otherEnv); });
  EXPECT_EQ(result.code, 200);
  EXPECT_EQ(other.code, 200);
  EXPECT_EQ((std::set<std::string>{result.body, other.body}),
            (std::set<std::string>{"one", "two"}));
}

}  // namespace
}  // namespace lumtest
