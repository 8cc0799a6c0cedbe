// CurlGlobalInit, construction, SetHeaders, SetSslInfo, and the pass phrase that serves one
// request.

#include <mutex>
#include <type_traits>
#include <vector>

#include "HttpTest.h"

namespace lumtest {
namespace {

using ::testing::Each;

// --- The shape of the two classes

static_assert(sizeof(LumCurlHttp) == sizeof(void*), "callers were compiled with this size");
static_assert(std::is_same<decltype(LumCurlHttpPrivate::m_mutex), std::mutex>::value, "");
static_assert(std::is_same<decltype(LumCurlHttpPrivate::m_keyPassword), unsigned char[2048]>::value,
              "");

TEST_F(HttpTest, TheEngineDeclaresItsFieldsInOrder) {
  const LumCurlHttpPrivate& engine = Engine();
  const std::vector<const void*> fields = {
      &engine,
      &engine.m_mutex,
      &engine.m_caCertPath,
      &engine.m_clientCertPath,
      &engine.m_clientKeyPath,
      &engine.m_keyPassword,
      &engine.m_userAgent,
      &engine.m_headers,
  };
  EXPECT_EQ(fields[0], fields[1]);
  for (std::size_t i = 2; i < fields.size(); ++i) {
    EXPECT_LT(fields[i - 1], fields[i]) << "field " << i;
  }
  EXPECT_EQ(static_cast<const void*>(&engine.m_headers + 1), &engine + 1)
      << "there is a further field";
}

// --- CurlGlobalInit and construction

TEST_F(HttpTest, CurlGlobalInitInitialisesEverythingOnEveryCall) {
  EXPECT_EQ(LumCurlHttp::CurlGlobalInit(), 0);
  EXPECT_EQ(LumCurlHttp::CurlGlobalInit(), 0);
  ExpectEvents({"curl_global_init 3", "curl_global_init 3"});
}

TEST_F(HttpTest, CurlGlobalInitHandsLibcurlsResultBack) {
  recorder.globalInit = CURLE_FAILED_INIT;
  EXPECT_EQ(LumCurlHttp::CurlGlobalInit(), 2);
}

TEST_F(HttpTest, ANewClientHasNoFilesNoHeaderAndAZeroedPassPhrase) {
  const LumCurlHttp made;
  ExpectEvents({"memset_s 2048 0 2048"});
  const LumCurlHttpPrivate& engine = *made.d_pointer;
  EXPECT_EQ(engine.m_caCertPath, "");
  EXPECT_EQ(engine.m_clientCertPath, "");
  EXPECT_EQ(engine.m_clientKeyPath, "");
  EXPECT_EQ(engine.m_headers, "");
  EXPECT_EQ(engine.m_userAgent, "QVcurlHttp/0.1.2");
  EXPECT_THAT(engine.m_keyPassword, Each(0));
  EXPECT_EQ(sizeof(engine.m_keyPassword), 2048u);
}

TEST_F(HttpTest, DestructionReleasesAndWipesNothing) {
  auto made = std::make_unique<LumCurlHttp>();
  SetSsl(*made, "secret");
  recorder.Reset();
  made.reset();
  ExpectEvents({});
}

TEST_F(HttpTest, AnEngineStartsEveryResultAtMinusOneAndEmpty) {
  EXPECT_EQ(HttpResult().code, -1);
  EXPECT_EQ(HttpResult().body, "");
  EXPECT_EQ(sizeof(HttpResult().code), 4u);
}

// --- SetHeaders

TEST_F(HttpTest, SetHeadersStoresTheTextWithoutALock) {
  recorder.WatchMutex(&Engine().m_mutex, true);
  client.SetHeaders("X-One: 1");
  EXPECT_EQ(Engine().m_headers, "X-One: 1");
  ExpectEvents({});
}

TEST_F(HttpTest, SetHeadersRefusesAnEmptyText) {
  client.SetHeaders("X-One: 1");
  client.SetHeaders("");
  EXPECT_EQ(Engine().m_headers, "X-One: 1");
  ExpectLogs({Log(1, "SetHeaders", "d_pointer is null or headers is empty")});
}

TEST_F(HttpTest, SetHeadersWithoutItsPrivatePartSaysTheSame) {
  const WithoutPrivate<LumCurlHttp> without(client);
  client.SetHeaders("X-One: 1");
  ExpectLogs({Log(1, "SetHeaders", "d_pointer is null or headers is empty")});
}

// --- SetSslInfo

// What is stored is PassPhraseTest's (../operations).
TEST_F(HttpTest, APassPhraseIsStoredWithoutALock) {
  recorder.WatchMutex(&Engine().m_mutex, true);
  SetSsl(client, "secret");
  ExpectEvents({"memcpy_s 6 6"});
}

TEST_F(HttpTest, WithoutThePrivatePartNoPassPhraseIsStored) {
  const WithoutPrivate<LumCurlHttp> without(client);
  SetSsl(client, "secret");
  ExpectEvents({Log(1, "SetSslInfo", "d_LumCurlHttpPrivate is null")});
}

// --- One phrase, one request

class OneShot : public HttpTest, public ::testing::WithParamInterface<Method> {
 protected:
  void ExpectStored(const std::string& text) {
    const std::string stored(reinterpret_cast<const char*>(Engine().m_keyPassword),
                             lumhttp::kKeyPasswordSize);
    EXPECT_EQ(stored, text + std::string(lumhttp::kKeyPasswordSize - text.size(), '\0'));
  }
};

TEST_P(OneShot, ItIsWipedBeforeTheTransferWhichStillHasIt) {
  SetSsl(client, "secret");
  Script script = Answer(200, "{}");
  bool ran = false;
  script.during = [&](const Transfer& transfer) {
    ran = true;
    ExpectStored("");
    EXPECT_EQ(transfer.texts.at(CURLOPT_KEYPASSWD), "secret");
  };
  recorder.NextPerform(script);
  Call(GetParam(), kUrl, true);
  EXPECT_TRUE(ran);
}

TEST_P(OneShot, ItIsWipedWhenLibcurlRefusesIt) {
  SetSsl(client, "secret");
  recorder.FailOption(CURLOPT_KEYPASSWD, CURLE_BAD_FUNCTION_ARGUMENT);
  Call(GetParam(), kUrl, true);
  ExpectStored("");
}

TEST_P(OneShot, ItOutlivesARequestWithoutAHandle) {
  SetSsl(client, "secret");
  recorder.failInit = true;
  Call(GetParam(), kUrl, true);
  ExpectStored("secret");
}

INSTANTIATE_TEST_SUITE_P(Both, OneShot, ::testing::Values(kGet, kPost),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace lumtest
