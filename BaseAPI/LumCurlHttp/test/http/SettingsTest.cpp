// CurlGlobalInit, construction, SetHeaders, SetSslInfo, and the pass phrase that serves one
// request.

#include <climits>
#include <cstring>
#include <mutex>
#include <type_traits>
#include <vector>

#include "HttpTest.h"
#include "support/Alloc.h"

namespace lumtest {
namespace {

using ::testing::Contains;
using ::testing::Each;
using ::testing::Not;

// --- The shape of the two classes

static_assert(!std::is_copy_constructible<LumCurlHttp>::value &&
                  !std::is_copy_assignable<LumCurlHttp>::value &&
                  !std::is_move_constructible<LumCurlHttp>::value &&
                  !std::is_move_assignable<LumCurlHttp>::value,
              "one object owns its private part");
static_assert(!std::is_polymorphic<LumCurlHttp>::value, "");
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
  recorder.SetGlobalInitResult(CURLE_FAILED_INIT);
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

TEST_F(HttpTest, DestructionReleasesThePrivatePart) {
  const std::size_t before = LiveNews();
  auto made = std::make_unique<LumCurlHttp>();
  EXPECT_GT(LiveNews(), before);
  made.reset();
  recorder.Reset();
  EXPECT_EQ(LiveNews(), before);
}

TEST_F(HttpTest, AClientWithoutItsPrivatePartCanBeDestroyed) {
  LumCurlHttpPrivate* engine = nullptr;
  {
    LumCurlHttp made;
    engine = made.d_pointer;
    made.d_pointer = nullptr;
  }
  delete engine;
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

class PassPhrase : public HttpTest {
 protected:
  // SetSslInfo with these bytes and this length, the paths being `tag` and a letter each.
  void Set(std::string bytes, int length, const std::string& tag = "") {
    client.SetSslInfo(tag + "ca", tag + "cert", tag + "key", Bytes(bytes), length);
  }

  void Set(const std::string& bytes) { Set(bytes, static_cast<int>(bytes.size())); }

  std::string Stored() {
    return {reinterpret_cast<const char*>(Engine().m_keyPassword), lumhttp::kKeyPasswordSize};
  }

  static std::string Padded(const std::string& text) {
    return text + std::string(lumhttp::kKeyPasswordSize - text.size(), '\0');
  }

  void ExpectPaths(const std::string& tag) {
    EXPECT_EQ(Engine().m_caCertPath, tag + "ca");
    EXPECT_EQ(Engine().m_clientCertPath, tag + "cert");
    EXPECT_EQ(Engine().m_clientKeyPath, tag + "key");
  }

  // The pass phrase that the next request hands to libcurl.
  std::string Sent(const Method& method = kGet) {
    Call(method, kUrl, true);
    return recorder.Transfers().back().texts.at(CURLOPT_KEYPASSWD);
  }
};

TEST_F(PassPhrase, IsCopiedWithItsLengthAsTheCapacity) {
  Set("secret");
  ExpectPaths("");
  EXPECT_EQ(Stored(), Padded("secret"));
  ExpectEvents({"memcpy_s 6 6"});
  EXPECT_EQ(Sent(), "secret");
}

TEST_F(PassPhrase, IsStoredWithoutALock) {
  recorder.WatchMutex(&Engine().m_mutex, true);
  Set("secret");
  ExpectEvents({"memcpy_s 6 6"});
}

TEST_F(PassPhrase, LeavesTheCallersBytesAlone) {
  std::string bytes = "secret";
  client.SetSslInfo("ca", "cert", "key", Bytes(bytes), 6);
  Sent();
  EXPECT_EQ(bytes, "secret");
}

TEST_F(PassPhrase, MayHoldAnyByteAndEndsAtTheFirstZero) {
  Set(std::string("p\xc3\xa4\0ss", 6));
  EXPECT_EQ(Stored(), Padded(std::string("p\xc3\xa4\0ss", 6)));
  EXPECT_EQ(Sent(), "p\xc3\xa4");
}

TEST_F(PassPhrase, NoTerminatorIsWrittenSoALongerOneKeepsItsTail) {
  Set("longer one");
  Set("short");
  EXPECT_EQ(Stored(), Padded("shortr one"));
  EXPECT_EQ(Sent(), "shortr one");
}

TEST_F(PassPhrase, ATerminatorThatIsCountedInCutsTheTailOff) {
  Set("longer one");
  Set("short", 6);
  EXPECT_EQ(Stored(), Padded(std::string("short\0 one", 10)));
  EXPECT_EQ(Sent(), "short");
}

TEST_F(PassPhrase, AfterARequestAShorterOneStandsAlone) {
  Set("longer one");
  Sent();
  Set("short");
  EXPECT_EQ(Sent(), "short");
}

TEST_F(PassPhrase, OfLengthZeroLeavesTheStoredOne) {
  Set("secret");
  Set("other", 0, "new-");
  ExpectPaths("new-");
  EXPECT_EQ(Stored(), Padded("secret"));
  ExpectLogs({});
}

TEST_F(PassPhrase, MayFillTheBufferToItsLastByte) {
  const std::string full(2048, 'x');
  Set(full);
  EXPECT_EQ(Stored(), full);
  EXPECT_EQ(Engine().m_userAgent, "QVcurlHttp/0.1.2");
  recorder.Reset();
  EXPECT_EQ(Sent(), full);
  EXPECT_EQ(Stored(), Padded(""));
  // The copy that got a terminator goes too.
  EXPECT_THAT(recorder.Events(), Contains("memset_s 2049 0 2049"));
  ExpectLogs({Log(1, "Get", "json parse() failed")});
}

TEST_F(PassPhrase, OneByteShortOfTheBufferNeedsNoCopy) {
  const std::string almost(2047, 'x');
  Set(almost);
  EXPECT_EQ(Sent(), almost);
  EXPECT_THAT(recorder.Events(), Not(Contains("memset_s 2049 0 2049")));
}

TEST_F(PassPhrase, LongerThanTheBufferIsRefusedAndTheStoredOneStays) {
  Set("secret");
  for (const int length : {2049, 4096, INT_MAX}) {
    recorder.Reset();
    Set(std::string(4096, 'y'), length, std::to_string(length));
    ExpectPaths(std::to_string(length));
    EXPECT_EQ(Stored(), Padded("secret"));
    EXPECT_EQ(Engine().m_userAgent, "QVcurlHttp/0.1.2");
    ExpectLogs({Log(1, "SetSslInfo", "falied to strcpy_s")});
  }
}

// The length, widened, is a size that no copy takes; what the copy then says is positive.
TEST_F(PassPhrase, OfANegativeLengthPassesWithoutAWordAndTheStoredOneStays) {
  Set("secret");
  for (const int length : {-1, -2048, INT_MIN}) {
    recorder.Reset();
    Set(std::string(4096, 'y'), length, std::to_string(length));
    ExpectPaths(std::to_string(length));
    EXPECT_EQ(Stored(), Padded("secret"));
    EXPECT_EQ(Engine().m_userAgent, "QVcurlHttp/0.1.2");
    const std::string widened = std::to_string(static_cast<std::size_t>(length));
    ExpectEvents({"memcpy_s " + widened + " " + widened});
  }
  EXPECT_EQ(Sent(), "secret");
}

TEST_F(PassPhrase, ThatIsNullIsRefusedAndTheStoredOneStays) {
  Set("secret");
  recorder.Reset();
  client.SetSslInfo("2ca", "2cert", "2key", nullptr, 6);
  ExpectPaths("2");
  EXPECT_EQ(Stored(), Padded("secret"));
  ExpectEvents({Log(1, "SetSslInfo", "invalid certPaas")});
  EXPECT_EQ(Sent(), "secret");
}

TEST_F(PassPhrase, ThatIsNullIsToldAsSuchWhateverItsLength) {
  client.SetSslInfo("ca", "cert", "key", nullptr, -1);
  ExpectLogs({Log(1, "SetSslInfo", "invalid certPaas")});
}

TEST_F(PassPhrase, ThatIsNullStillMakesThePathsTakeEffect) {
  client.SetSslInfo(kCa, kCertificate, kKey, nullptr, 0);
  EXPECT_EQ(Sent(), "");
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_CAINFO), kCa);
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_SSLCERT), kCertificate);
  EXPECT_EQ(TheTransfer().texts.at(CURLOPT_SSLKEY), kKey);
}

TEST_F(PassPhrase, ANegativeResultOfTheCopyIsToldAndThePathsStay) {
  recorder.SetMemcpyResult(-22);
  Set("secret");
  ExpectPaths("");
  ExpectLogs({Log(1, "SetSslInfo", "falied to strcpy_s")});
}

TEST_F(PassPhrase, APositiveResultOfTheCopyPassesWithoutAWord) {
  recorder.SetMemcpyResult(22);
  Set("secret");
  ExpectLogs({});
}

TEST_F(PassPhrase, WithoutThePrivatePartNothingIsStored) {
  const WithoutPrivate<LumCurlHttp> without(client);
  Set("secret");
  ExpectEvents({Log(1, "SetSslInfo", "d_LumCurlHttpPrivate is null")});
}

// --- One phrase, one request

class OneShot : public PassPhrase, public ::testing::WithParamInterface<Method> {
 protected:
  void ExpectStored(const std::string& text) { EXPECT_EQ(Stored(), Padded(text)); }
};

TEST_P(OneShot, TheSecondRequestSendsAnEmptyOne) {
  Set("secret");
  EXPECT_EQ(Sent(GetParam()), "secret");
  EXPECT_EQ(Sent(GetParam()), "");
  EXPECT_EQ(recorder.Transfers().back().texts.at(CURLOPT_SSLKEY), "key");
}

TEST_P(OneShot, ANewOneServesTheNextRequest) {
  Set("first");
  Sent(GetParam());
  Set("second");
  EXPECT_EQ(Sent(GetParam()), "second");
}

TEST_P(OneShot, ItIsWipedBeforeTheTransferWhichStillHasIt) {
  Set("secret");
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

TEST_P(OneShot, ItIsWipedWhenTheTransferFails) {
  Set("secret");
  recorder.NextPerform(Broken(CURLE_SSL_CERTPROBLEM, 0, "bad key"));
  Call(GetParam(), kUrl, true);
  ExpectStored("");
}

TEST_P(OneShot, ItIsWipedWhenLibcurlRefusesIt) {
  Set("secret");
  recorder.FailOption(CURLOPT_KEYPASSWD, CURLE_BAD_FUNCTION_ARGUMENT);
  Call(GetParam(), kUrl, true);
  ExpectStored("");
}

TEST_P(OneShot, ItOutlivesARequestWithoutTls) {
  Set("secret");
  Call(GetParam());
  ExpectStored("secret");
}

TEST_P(OneShot, ItOutlivesARequestThatLacksAFile) {
  Set("secret");
  Engine().m_clientKeyPath.clear();
  Call(GetParam(), kUrl, true);
  ExpectStored("secret");
}

TEST_P(OneShot, ItOutlivesARequestWithoutAHandle) {
  Set("secret");
  recorder.FailInit();
  Call(GetParam(), kUrl, true);
  ExpectStored("secret");
}

INSTANTIATE_TEST_SUITE_P(Both, OneShot, ::testing::Values(kGet, kPost),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace lumtest
