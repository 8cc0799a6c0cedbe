// Get and Post over TLS: what is verified, which certificate is offered, and the pass phrase that
// serves one request.

#include "HttpLiveTest.h"

namespace lumtest {
namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;

const char kClient[] = "CN=Lum test client,O=Lum";
class TlsLive : public HttpLive {
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

TEST_F(TlsLive, APassPhraseServesOneGetAndMustBeSetAgainForTheNext) {
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

TEST_F(TlsLive, APassPhraseServesOnePostAndMustBeSetAgainForTheNext) {
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

TEST_F(TlsLive, AFailedRequestUsesThePassPhraseUpToo) {
  const RefusedPort port;
  SetSsl(Tls().clientEncryptedKey, kPassPhrase);
  ExpectGetFails(port.Url("https"), Failed("GET", 7, ".*"), true);
  WireServer server(TlsOptions());
  ExpectGetFails(server.Url(), Failed("GET", CurlBadKey(), ".*"), true);
}

TEST_F(TlsLive, ARequestWithoutTlsLeavesThePassPhrase) {
  WireServer plain;
  Answer(plain);
  WireServer server(TlsOptions(WireTls::ClientCertificate::kRequired));
  Answer(server);
  SetSsl(Tls().clientEncryptedKey, kPassPhrase);
  Get(plain.Url());
  ExpectGetWorks(server);
}

TEST_F(TlsLive, AKeyInTheTraditionalFormWorksToo) {
  WireServer server(TlsOptions(WireTls::ClientCertificate::kRequired));
  Answer(server);
  SetSsl(Tls().clientTraditionalKey, kPassPhrase);
  ExpectGetWorks(server);
}

TEST_F(TlsLive, AKeyThatIsNotEncryptedServesAnyNumberOfRequests) {
  WireServer server(TlsOptions(WireTls::ClientCertificate::kRequired));
  Answer(server);
  client.SetSslInfo(Tls().caCertificate, Tls().clientCertificate, Tls().clientKey, nullptr, 0);
  for (int i = 0; i < 3; ++i) {
    ExpectGetWorks(server);
  }
}

TEST_F(TlsLive, AWrongPassPhraseIsAFailure) {
  WireServer server(TlsOptions());
  SetSsl(Tls().clientEncryptedKey, "wrong");
  ExpectGetFails(server.Url(), Failed("GET", CurlBadKey(), "unable to set private key file: .*"),
                 true);
  EXPECT_EQ(server.RequestCount(), 0u);
}

// A longer pass phrase that no request has used leaves its tail behind a shorter one.
TEST_F(TlsLive, AShorterPassPhraseBehindALongerOneIsWrong) {
  WireServer server(TlsOptions());
  SetSsl(Tls().clientEncryptedKey, std::string(kPassPhrase) + " and more");
  SetSsl(Tls().clientEncryptedKey, kPassPhrase);
  ExpectGetFails(server.Url(), Failed("GET", CurlBadKey(), ".*"), true);
}

// --- Files that are not what they should be

TEST_F(TlsLive, AMissingKeyFileIsAFailure) {
  WireServer server(TlsOptions());
  SetSsl("/nonexistent/client.key", kPassPhrase);
  ExpectGetFails(server.Url(), Failed("GET", CurlBadKey(), ".*/nonexistent/client.key.*"), true);
}

TEST_F(TlsLive, AMissingCertificateFileIsAFailure) {
  WireServer server(TlsOptions());
  SetSsl(Tls().clientKey, "", Tls().caCertificate, "/nonexistent/client.pem");
  ExpectGetFails(server.Url(), Failed("GET", 58, ".*/nonexistent/client.pem.*"), true);
}

TEST_F(TlsLive, AMissingCaFileIsAFailure) {
  WireServer server(TlsOptions());
  SetSsl(Tls().clientKey, "", "/nonexistent/ca.pem");
  ExpectGetFails(server.Url(), Failed("GET", 77, ".*/nonexistent/ca.pem.*"), true);
}

TEST_F(TlsLive, AKeyThatIsNotTheCertificatesIsAFailure) {
  WireServer server(TlsOptions());
  SetSsl(Tls().untrustedClientKey, "");
  ExpectGetFails(server.Url(), Failed("GET", CurlBadKey(), ".*"), true);
}

TEST_F(TlsLive, WithoutItsFilesTheRequestIsNotAttempted) {
  WireServer server(TlsOptions());
  client.SetSslInfo(Tls().caCertificate, "", "", nullptr, 0);
  log.Clear();
  EXPECT_TRUE(Get(server.Url(), true).IsNull());
  EXPECT_EQ(code, -1);
  EXPECT_THAT(log.Messages(1),
              ElementsAre("GET(" + server.Url() + ") use ssl, but certs is empty"));
  EXPECT_EQ(server.Connections().size(), 0u);
}

// --- What is verified

TEST_F(TlsLive, AServerOfAnotherCaIsRefused) {
  WireServer server(TlsOptions(Tls().untrustedServerCertificate, Tls().untrustedServerKey));
  SetSsl(Tls().clientKey, "");
  ExpectGetFails(server.Url(), Failed("GET", 60, CurlBadCertificate(".*")), true);
  EXPECT_EQ(server.RequestCount(), 0u);
}

TEST_F(TlsLive, AnExpiredServerCertificateIsRefused) {
  WireServer server(TlsOptions(Tls().expiredServerCertificate, Tls().expiredServerKey));
  SetSsl(Tls().clientKey, "");
  ExpectGetFails(server.Url(), Failed("GET", 60, CurlBadCertificate("certificate has expired")),
                 true);
}

TEST_F(TlsLive, AServerCertificateForAnotherHostIsAccepted) {
  WireServer server(TlsOptions(Tls().wrongHostServerCertificate, Tls().wrongHostServerKey));
  Answer(server);
  SetSsl(Tls().clientKey, "");
  ExpectGetWorks(server);
}

TEST_F(TlsLive, WithoutTlsFilesEveryServerIsAccepted) {
  const TlsMaterial& tls = Tls();
  SetSsl(tls.clientKey, "");
  for (const auto& [certificate, key] :
       {std::pair(tls.serverCertificate, tls.serverKey),
        std::pair(tls.untrustedServerCertificate, tls.untrustedServerKey),
        std::pair(tls.expiredServerCertificate, tls.expiredServerKey),
        std::pair(tls.wrongHostServerCertificate, tls.wrongHostServerKey)}) {
    WireServer server(TlsOptions(certificate, key));
    server.Script(JsonReply("{}")).Script(JsonReply("{}"));
    Get(server.Url());
    EXPECT_EQ(code, 200) << certificate;
    Post(server.Url(), "{}");
    EXPECT_EQ(code, 200) << certificate;
  }
}

TEST_F(TlsLive, WithoutTlsFilesNoCertificateIsOffered) {
  WireServer server(TlsOptions(WireTls::ClientCertificate::kOptional));
  Answer(server);
  SetSsl(Tls().clientKey, "");
  Get(server.Url());
  EXPECT_EQ(code, 200);
  EXPECT_EQ(server.Request(0).clientSubject, "");
}

TEST_F(TlsLive, WithoutACertificateAServerThatRequiresOneRefuses) {
  WireOptions options = TlsOptions(WireTls::ClientCertificate::kRequired);
  options.tls->maxVersion = 0x0303;  // TLS 1.2, whose handshake itself fails
  WireServer server(options);
  ExpectGetFails(server.Url(), Failed("GET", 35, ".*"));
  EXPECT_EQ(server.RequestCount(), 0u);
}

// --- TLS that goes wrong

TEST_F(TlsLive, AServerThatSpeaksNoTlsIsAFailure) {
  WireServer server;
  server.Script(WireReply().At(WireStart::kAccept).Send("HTTP/1.1 200 OK\r\n\r\n").Close());
  const std::string url = "https://127.0.0.1:" + std::to_string(server.Port()) + "/";
  ExpectGetFails(url, Failed("GET", 35, ".*"));
}

TEST_F(TlsLive, ATlsServerThatClosesInMidBodyIsAFailure) {
  WireServer server(TlsOptions());
  server.Script(WireReply(WireHead(200, {"Content-Length: 10"}) + "{}").Close());
  ExpectGetFails(server.Url(), Failed("GET", 18, CurlBytesMissing(8)));
}

TEST_F(TlsLive, TlsFilesDoNotTurnHttpIntoHttps) {
  WireServer server;
  Answer(server);
  SetSsl(Tls().clientEncryptedKey, kPassPhrase);
  Get(server.Url(), true);
  EXPECT_EQ(code, 200);
  EXPECT_FALSE(server.Request(0).tls);
}

}  // namespace
}  // namespace lumtest
