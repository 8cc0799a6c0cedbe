// SetSslInfo of the two clients that have it: what is stored of paths and pass phrase, and what the
// next request hands to libcurl.

#include <climits>
#include <type_traits>

#include "LumCurlHttp.h"
#include "LumCurlHttpPrivate.h"
#include "LumCurlOrvOps.h"
#include "LumCurlOrvOpsPrivate.h"
#include "recording/RecordingTest.h"

namespace lumtest {
namespace {

constexpr std::size_t kCapacity = 2048;
const char kUrl[] = "https://server.example/";

// What a client holds.
struct Stored {
  std::string paths;
  std::string phrase;  // the whole buffer
  std::string behind;  // the buffer
};

template <std::size_t kSize>
std::string AllOf(const unsigned char (&buffer)[kSize]) {
  return {reinterpret_cast<const char*>(buffer), kSize};
}

Stored StoredBy(const LumCurlHttp& client) {
  const LumCurlHttpPrivate& own = *client.d_pointer;
  return {own.m_caCertPath + " " + own.m_clientCertPath + " " + own.m_clientKeyPath,
          AllOf(own.m_keyPassword), own.m_userAgent};
}

Stored StoredBy(const LumCurlOrvOps& client) {
  const LumCurlOrvOpsPrivate& own = *client.d_pointer;
  return {own.caInfoPath + " " + own.sslCertPath + " " + own.sslKeyPath, AllOf(own.keyPassword),
          std::to_string(own.limitSpeed)};
}

// Whether requests offer the certificate; those of LumCurlHttp do where they are told to.
void ExpectOffered(const LumCurlHttp& /*client*/, bool /*offered*/) {}

void ExpectOffered(const LumCurlOrvOps& client, bool offered) {
  EXPECT_EQ(client.d_pointer->sslInfoSet, offered);
}

void Request(LumCurlHttp& client) {
  int code = 0;
  client.Get(kUrl, "", true, code);
}

void Request(LumCurlOrvOps& client) {
  int code = 0;
  client.Get(kUrl, {}, code);
}

template <typename Client>
class PassPhraseTest : public RecordingTest {
 protected:
  PassPhraseTest() { Forget(); }

  // SetSslInfo with these bytes and this length, the paths being `tag` and a word each.
  void Set(std::string bytes, int length, const std::string& tag = "") {
    client.SetSslInfo(tag + "ca", tag + "cert", tag + "key",
                      reinterpret_cast<unsigned char*>(bytes.data()), length);
  }

  void Set(const std::string& bytes) { Set(bytes, static_cast<int>(bytes.size())); }

  void ExpectStored(const std::string& tag, const std::string& phrase) const {
    const Stored stored = StoredBy(client);
    EXPECT_EQ(stored.paths, tag + "ca " + tag + "cert " + tag + "key");
    EXPECT_EQ(stored.phrase, phrase + std::string(kCapacity - phrase.size(), '\0'));
    EXPECT_EQ(stored.behind, before.behind);
  }

  // The pass phrase that the next request hands to libcurl.
  std::string Sent() {
    Request(client);
    return recorder.Transfers().back().texts.at(CURLOPT_KEYPASSWD);
  }

  Client client;
  const Stored before = StoredBy(client);
};

using Clients = ::testing::Types<LumCurlHttp, LumCurlOrvOps>;

struct NameOfClient {
  template <typename Client>
  static std::string GetName(int /*index*/) {
    return std::is_same<Client, LumCurlHttp>::value ? "LumCurlHttp" : "LumCurlOrvOps";
  }
};

TYPED_TEST_SUITE(PassPhraseTest, Clients, NameOfClient);

TYPED_TEST(PassPhraseTest, IsCopiedWithItsLengthAsTheCapacity) {
  std::string bytes = "secret";
  this->client.SetSslInfo("ca", "cert", "key", reinterpret_cast<unsigned char*>(bytes.data()), 6);

  this->ExpectEvents({"memcpy_s 6 6"});
  this->ExpectStored("", "secret");
  ExpectOffered(this->client, true);
  EXPECT_EQ(this->Sent(), "secret");
  EXPECT_EQ(bytes, "secret");
}

TYPED_TEST(PassPhraseTest, MayHoldAnyByteAndEndsAtTheFirstZero) {
  this->Set(std::string("p\xc3\xa4\0ss", 6));

  this->ExpectStored("", std::string("p\xc3\xa4\0ss", 6));
  EXPECT_EQ(this->Sent(), "p\xc3\xa4");
}

TYPED_TEST(PassPhraseTest, NoTerminatorIsWrittenSoALongerOneKeepsItsTail) {
  this->Set("longer one");
  this->Set("short");

  this->ExpectStored("", "shortr one");
  EXPECT_EQ(this->Sent(), "shortr one");
}

TYPED_TEST(PassPhraseTest, ATerminatorThatIsCountedInCutsTheTailOff) {
  this->Set("longer one");
  this->Set("short", 6);

  this->ExpectStored("", std::string("short\0 one", 10));
  EXPECT_EQ(this->Sent(), "short");
}

TYPED_TEST(PassPhraseTest, OfLengthZeroLeavesTheStoredOneAndOffersTheCertificate) {
  this->Set("unread", 0, "new-");

  this->ExpectStored("new-", "");
  this->ExpectLogs({});
  ExpectOffered(this->client, true);

  this->Set("secret");
  this->Set("other", 0, "newer-");
  this->ExpectStored("newer-", "secret");
}

TYPED_TEST(PassPhraseTest, MayFillTheBufferToItsLastByteAndIsSentWithATerminator) {
  const std::string full(kCapacity, 'x');
  this->Set(full);

  this->ExpectEvents({"memcpy_s 2048 2048"});
  this->ExpectStored("", full);
  ExpectOffered(this->client, true);
  EXPECT_EQ(this->Sent(), full);
  const Events copied = {"memcpy_s 2049 2048", "CURLOPT_KEYPASSWD " + full, "memset_s 2049 0 2049"};
  EXPECT_THAT(this->recorder.Events(), ::testing::IsSupersetOf(copied)) << "and the copy is wiped";
}

TYPED_TEST(PassPhraseTest, OneByteShortOfTheBufferNeedsNoCopy) {
  const std::string almost(kCapacity - 1, 'x');
  this->Set(almost);

  EXPECT_EQ(this->Sent(), almost);
  EXPECT_THAT(this->recorder.Events(), ::testing::Not(::testing::Contains("memset_s 2049 0 2049")));
}

TYPED_TEST(PassPhraseTest, LongerThanTheBufferIsRefusedAndThePathsAreStored) {
  for (const int length : {2049, 4096, INT_MAX}) {
    this->Forget();
    this->Set(std::string(4096, 'y'), length, std::to_string(length));

    this->ExpectEvents({Log(1, "SetSslInfo", "falied to strcpy_s")});
    this->ExpectStored(std::to_string(length), "");
    ExpectOffered(this->client, false);
  }
}

// The length, widened, is a size that no copy takes; what the copy then says is positive.
TYPED_TEST(PassPhraseTest, OfANegativeLengthPassesWithoutAWordAndTheStoredOneStays) {
  for (const int length : {-1, -2048, INT_MIN}) {
    this->Forget();
    this->Set(std::string(4096, 'y'), length, std::to_string(length));

    const std::string widened = std::to_string(static_cast<std::size_t>(length));
    this->ExpectEvents({"memcpy_s " + widened + " " + widened});
    this->ExpectStored(std::to_string(length), "");
    ExpectOffered(this->client, true);
  }
}

TYPED_TEST(PassPhraseTest, ThatIsNullIsRefusedAndThePathsAreStoredBefore) {
  for (const int length : {6, 0, -1}) {
    this->Forget();
    std::string pathsWhenLogged;
    this->recorder.onLog = [&](const LogLine&) { pathsWhenLogged = StoredBy(this->client).paths; };
    this->client.SetSslInfo("ca", "cert", "key", nullptr, length);

    this->ExpectEvents({Log(1, "SetSslInfo", "invalid certPaas")});
    this->ExpectStored("", "");
    EXPECT_EQ(pathsWhenLogged, "ca cert key");
    ExpectOffered(this->client, false);
  }
}

TYPED_TEST(PassPhraseTest, ThatIsRefusedLeavesTheStoredOneAndTheCertificateOffered) {
  this->Set("secret");

  this->client.SetSslInfo("2ca", "2cert", "2key", nullptr, 0);
  this->ExpectStored("2", "secret");
  this->Set(std::string(4096, 'y'), 2049, "3");
  this->ExpectStored("3", "secret");

  ExpectOffered(this->client, true);
  EXPECT_EQ(this->Sent(), "secret");
  EXPECT_EQ(this->TheTransfer().texts.at(CURLOPT_CAINFO), "3ca");
}

TYPED_TEST(PassPhraseTest, ANegativeResultOfTheCopyIsAFailure) {
  this->recorder.memcpyResult = -22;
  this->Set("secret");

  this->ExpectEvents({"memcpy_s 6 6", Log(1, "SetSslInfo", "falied to strcpy_s")});
  EXPECT_EQ(StoredBy(this->client).paths, "ca cert key");
  ExpectOffered(this->client, false);
}

TYPED_TEST(PassPhraseTest, APositiveResultOfTheCopyCountsAsDone) {
  this->recorder.memcpyResult = 22;
  this->Set("secret");

  this->ExpectLogs({});
  ExpectOffered(this->client, true);
}

}  // namespace
}  // namespace lumtest
