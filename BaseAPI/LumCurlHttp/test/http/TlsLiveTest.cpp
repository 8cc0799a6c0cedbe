// Get and Post over TLS: which certificate is offered, and the pass phrase that serves one request.
// What is verified is TlsFaultTest.cpp's (../faults).

#include "HttpLiveTest.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;

const char kClient[] = "CN=Lum test client,O=Lum";
class HttpTlsLiveTest : public HttpLiveTest {
 protected:
  void SetSsl(const std::string& key, std::string passPhrase,
              const std::string& ca = Tls().caCertificate,
              const std::string& certificate = Tls().clientCertificate) {
    client.SetSslInfo(ca, certificate, key, reinterpret_cast<unsigned char*>(&passPhrase[0]),
                      static_cast<int>(passPhrase.size()));
  }

  // A request that must succeed.
  void ExpectGetWorks(const WireServer& server) {
    Get(server.Url(), true);
    EXPECT_EQ(code, 200) << log.Text();
  }

  static void Answer(WireServer& server) {
    server.SetHandler([](const WireRequest&) { return JsonReply("{}"); });
  }
};

// --- The key's pass phrase

TEST_F(HttpTlsLiveTest, APassPhraseServesOneGetAndMustBeSetAgainForTheNext) {
  WireServer server(TlsOptions(WireTls::ClientCertificate::kRequired));
  Answer(server);
  SetSsl(Tls().clientEncryptedKey, kPassPhrase);
  ExpectGetWorks(server);
  EXPECT_EQ(server.Request(0).clientSubject, kClient);
  EXPECT_TRUE(server.Request(0).tls);

  ExpectGetFails(server.Url(), Failed("GET", CurlBadKey(), "unable to set private key file: .*"),
                 true);
  EXPECT_EQ(server.RequestCount(), 1u);

  SetSsl(Tls().clientEncryptedKey, kPassPhrase);
  ExpectGetWorks(server);
  EXPECT_EQ(server.RequestCount(), 2u);
}

TEST_F(HttpTlsLiveTest, APassPhraseServesOnePostAndMustBeSetAgainForTheNext) {
  WireServer server(TlsOptions(WireTls::ClientCertificate::kRequired));
  Answer(server);
  SetSsl(Tls().clientEncryptedKey, kPassPhrase);
  Post(server.Url(), "{\"a\":1}", true);
  EXPECT_EQ(code, 200);
  EXPECT_EQ(server.Request(0).clientSubject, kClient);
  EXPECT_EQ(server.Request(0).body, "{\"a\":1}");

  EXPECT_TRUE(Post(server.Url(), "{}", true).IsNull());
  EXPECT_EQ(code, -1);
  EXPECT_THAT(log.Messages(1), ElementsAre(MatchesRegex(Failed(
                                   "POST", CurlBadKey(), "unable to set private key file: .*"))));

  SetSsl(Tls().clientEncryptedKey, kPassPhrase);
  Post(server.Url(), "{}", true);
  EXPECT_EQ(code, 200);
}

TEST_F(HttpTlsLiveTest, AFailedRequestUsesThePassPhraseUpToo) {
  const RefusedPort port;
  SetSsl(Tls().clientEncryptedKey, kPassPhrase);
  ExpectGetFails(port.Url("https"), Failed("GET", 7, ".*"), true);
  WireServer server(TlsOptions());
  ExpectGetFails(server.Url(), Failed("GET", CurlBadKey(), ".*"), true);
}

TEST_F(HttpTlsLiveTest, ARequestWithoutTlsLeavesThePassPhrase) {
  WireServer plain;
  Answer(plain);
  WireServer server(TlsOptions(WireTls::ClientCertificate::kRequired));
  Answer(server);
  SetSsl(Tls().clientEncryptedKey, kPassPhrase);
  Get(plain.Url());
  ExpectGetWorks(server);
}

TEST_F(HttpTlsLiveTest, AKeyInTheTraditionalFormWorksToo) {
  WireServer server(TlsOptions(WireTls::ClientCertificate::kRequired));
  Answer(server);
  SetSsl(Tls().clientTraditionalKey, kPassPhrase);
  ExpectGetWorks(server);
}

TEST_F(HttpTlsLiveTest, AKeyThatIsNotEncryptedServesAnyNumberOfRequests) {
  WireServer server(TlsOptions(WireTls::ClientCertificate::kRequired));
  Answer(server);
  client.SetSslInfo(Tls().caCertificate, Tls().clientCertificate, Tls().clientKey, nullptr, 0);
  for (int i = 0; i < 3; ++i) {
    ExpectGetWorks(server);
  }
}

TEST_F(HttpTlsLiveTest, AWrongPassPhraseIsAFailure) {
  WireServer server(TlsOptions());
  SetSsl(Tls().clientEncryptedKey, "wrong");
  ExpectGetFails(server.Url(), Failed("GET", CurlBadKey(), "unable to set private key file: .*"),
                 true);
  EXPECT_EQ(server.RequestCount(), 0u);
}

// A longer pass phrase that no request has used leaves its tail behind a shorter one.
TEST_F(HttpTlsLiveTest, AShorterPassPhraseBehindALongerOneIsWrong) {
  WireServer server(TlsOptions());
  SetSsl(Tls().clientEncryptedKey, std::string(kPassPhrase) + " and more");
  SetSsl(Tls().clientEncryptedKey, kPassPhrase);
  ExpectGetFails(server.Url(), Failed("GET", CurlBadKey(), ".*"), true);
}

// --- Files that are not what they should be

TEST_F(HttpTlsLiveTest, AMissingKeyFileIsAFailure) {
  WireServer server(TlsOptions());
  SetSsl("/nonexistent/client.key", kPassPhrase);
  ExpectGetFails(server.Url(), Failed("GET", CurlBadKey(), ".*/nonexistent/client.key.*"), true);
}

TEST_F(HttpTlsLiveTest, AMissingCertificateFileIsAFailure) {
  WireServer server(TlsOptions());
  SetSsl(Tls().clientKey, "", Tls().caCertificate, "/nonexistent/client.pem");
  ExpectGetFails(server.Url(), Failed("GET", 58, ".*/nonexistent/client.pem.*"), true);
}

TEST_F(HttpTlsLiveTest, AMissingCaFileIsAFailure) {
  WireServer server(TlsOptions());
  SetSsl(Tls().clientKey, "", "/nonexistent/ca.pem");
  ExpectGetFails(server.Url(), Failed("GET", 77, ".*/nonexistent/ca.pem.*"), true);
}

TEST_F(HttpTlsLiveTest, AKeyThatIsNotTheCertificatesIsAFailure) {
  WireServer server(TlsOptions());
  SetSsl(Tls().untrustedClientKey, "");
  ExpectGetFails(server.Url(), Failed("GET", CurlBadKey(), ".*"), true);
}

// --- Without TLS files

TEST_F(HttpTlsLiveTest, WithoutTlsFilesNoCertificateIsOffered) {
  WireServer server(TlsOptions(WireTls::ClientCertificate::kOptional));
  Answer(server);
  SetSsl(Tls().clientKey, "");
  Get(server.Url());
  EXPECT_EQ(code, 200);
  EXPECT_EQ(server.Request(0).clientSubject, "");
}

TEST_F(HttpTlsLiveTest, WithoutACertificateAServerThatRequiresOneRefuses) {
  WireOptions options = TlsOptions(WireTls::ClientCertificate::kRequired);
  options.tls->maxVersion = 0x0303;  // TLS 1.2, whose handshake itself fails
  WireServer server(options);
  ExpectGetFails(server.Url(), Failed("GET", 35, ".*"));
  EXPECT_EQ(server.RequestCount(), 0u);
}

TEST_F(HttpTlsLiveTest, TlsFilesDoNotTurnHttpIntoHttps) {
  WireServer server;
  Answer(server);
  SetSsl(Tls().clientEncryptedKey, kPassPhrase);
  Get(server.Url(), true);
  EXPECT_EQ(code, 200);
  EXPECT_FALSE(server.Request(0).tls);
}

}  // namespace
}  // namespace lumtest
