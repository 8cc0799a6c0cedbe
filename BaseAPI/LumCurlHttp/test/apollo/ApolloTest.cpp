// GetPropertyString: every call of it in order, every option, every way to fail.

#include <type_traits>

#include "LumApollo.h"
#include "LumApolloPrivate.h"
#include "recording/RecordingTest.h"

namespace lumtest {
namespace {

class ApolloTest : public RecordingTest {
 protected:
  HttpResult Read() {
    ++keptLists;  // each request keeps its header list, and nothing else
    return apollo.GetPropertyString(env);
  }

  // The URL that is asked for now.
  std::string Url() {
    Read();
    return recorder.Transfers().back().texts.at(CURLOPT_URL);
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

TEST_F(ApolloTest, CallsThisAndNothingElse) {
  recorder.NextPerform(Answer(200, "{}"));
  EXPECT_EQ(Read().code, 200);
  ExpectEvents(kCalls + Events{"curl_easy_cleanup"});
}

TEST_F(ApolloTest, CallsThisAndNothingElseWhenTheTransferFails) {
  recorder.NextPerform(Broken(CURLE_COULDNT_CONNECT, 0, "refused"));
  Read();
  ExpectEvents(kCalls + Events{"log 1 GetPropertyString: "
                               "POST(https://config.example:8443/configs/app/cluster/space) failed "
                               "for strerror 7, rps: 7, code: 0, errorBuf: refused",
                               "curl_easy_cleanup"});
}

// --- The URL

TEST_F(ApolloTest, PercentSignsAndBlanksGoIntoTheUrlAsTheyStand) {
  env = {"%s%n", "%d", "a b", "%%20?x=1&y#z/../\xc3\xa4"};
  recorder.NextPerform(Broken(CURLE_URL_MALFORMAT, 0, "%s"));
  const std::string url = "https://%s%n/configs/%d/a b/%%20?x=1&y#z/../\xc3\xa4";
  EXPECT_EQ(Url(), url);
  ExpectLogs({Log(1, "GetPropertyString",
                  "POST(" + url + ") failed for strerror 3, rps: 3, code: 0, errorBuf: %s")});
}

TEST_F(ApolloTest, EmptyFieldsLeaveTheirPlaceEmpty) {
  env = {"", "", "", ""};
  EXPECT_EQ(Url(), "https:///configs//default/");
}

TEST_F(ApolloTest, AnEmptyClusterBecomesDefaultInTheCallersRecordAndNothingElseChanges) {
  env.cluster.clear();
  EXPECT_EQ(Url(), "https://config.example:8443/configs/app/default/space");
  EXPECT_EQ(env.configServer, "config.example:8443");
  EXPECT_EQ(env.appId, "app");
  EXPECT_EQ(env.cluster, "default");
  EXPECT_EQ(env.namespaceName, "space");
}

TEST_F(ApolloTest, AUrlOf4095BytesFits) {
  const std::string start = "https://config.example:8443/configs/app/cluster/";
  env.namespaceName = std::string(4095 - start.size(), 'n');
  EXPECT_EQ(Url(), start + env.namespaceName);
}

// The one path on which a handle is never released, which nothing else may join.
TEST_F(ApolloTest, AUrlOf4096BytesFailsWithoutAWordAndKeepsItsHandle) {
  const std::string start = "https://config.example:8443/configs/app/default/";
  for (const std::size_t length : {4096, 4097, 100000}) {
    Forget();
    env.cluster.clear();
    env.namespaceName = std::string(length - start.size(), 'n');
    const HttpResult result = Read();
    EXPECT_EQ(result.code, -1);
    EXPECT_EQ(result.body, "");
    EXPECT_EQ(env.cluster, "default");
    ExpectEvents({"curl_easy_init", "memset_s 4096 0 4096"});
  }
  keptHandles = 1;
  keptLists = 0;
}

// --- What comes back

TEST_F(ApolloTest, TheListOfEachRequestStays) {
  Read();
  Read();
  Read();
  EXPECT_EQ(recorder.LiveLists(), 3);
}

// --- The shape of the class

static_assert(std::is_empty<LumApolloPrivate>::value, "there is nothing to share");
static_assert(sizeof(LumApollo) == sizeof(void*), "callers were compiled with this size");

TEST_F(ApolloTest, TheRecordHoldsItsFourTextsInOrder) {
  EXPECT_LT(&env.configServer, &env.appId);
  EXPECT_LT(&env.appId, &env.cluster);
  EXPECT_LT(&env.cluster, &env.namespaceName);
  EXPECT_EQ(sizeof(env), 4 * sizeof(std::string));
}

}  // namespace
}  // namespace lumtest
