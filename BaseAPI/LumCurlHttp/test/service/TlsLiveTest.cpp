// Client certificates.

#include "ServiceLiveTest.h"

namespace lumtest {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr char kSubject[] = "CN=Lum test client,O=Lum";

// A server that lets in only who has a good certificate.
class ClientCertificateTest : public ServiceLiveTest {
 protected:
  ClientCertificateTest() : ServiceLiveTest(TlsOptions(WireTls::ClientCertificate::kRequired)) {}

  void Offer(const std::string& key, const std::string& passPhrase) {
    OfferCertificate(Tls().caCertificate, Tls().clientCertificate, key, passPhrase);
  }

  int Report() { return client.ReportData(server.Url(), Json("{}"), "t", ""); }

  const std::string path = directory.Write("f", "data");
};

TEST_F(ClientCertificateTest, EncryptedKeyServesEveryRequestAfterOneSetting) {
  server.SetHandler(Always(200, "1"));
  expectedOutput = "111";
  Offer(Tls().clientEncryptedKey, kPassPhrase);
  int status = 0;
  const LumJson::Value document = Json(R"({"accessId": "a document of some length"})");

  EXPECT_EQ(client.ReportData(server.Url(), document, "t", ""), 0);
  EXPECT_EQ(client.ReportDataWithGzip(server.Url(), document, "t"), 0);
  EXPECT_EQ(client.GetToken(server.Url(), document).JsonValueToString(), "1");
  EXPECT_EQ(client.RefreshToken(server.Url(), document, "t").JsonValueToString(), "1");
  EXPECT_EQ(client.Get(server.Url(), {}, status).JsonValueToString(), "1");
  EXPECT_EQ(client.Post(server.Url(), "", {}, status).JsonValueToString(), "1");
  EXPECT_EQ(client.GetLogAddress(server.Url(), "a", "t", "f").JsonValueToString(), "1");
  EXPECT_EQ(client.UploadLog(server.Url(), path), 0);
  EXPECT_EQ(client.UploadLog(server.Url(), path, 5), 0);
  EXPECT_EQ(client.UploadVideoFile(server.Url(), path, 5), 0);

  ASSERT_EQ(server.RequestCount(), 10U) << log.Text();
  for (const WireRequest& request : server.Requests()) {
    EXPECT_EQ(request.clientSubject, kSubject);
  }
}

TEST_F(ClientCertificateTest, TraditionalAndPlainKeysServeToo) {
  server.SetHandler(Always(200));

  Offer(Tls().clientTraditionalKey, kPassPhrase);
  EXPECT_EQ(Report(), 0);
  Offer(Tls().clientKey, "");
  EXPECT_EQ(Report(), 0);
  Offer(Tls().clientKey, "a phrase that nobody asks for");
  EXPECT_EQ(Report(), 0);
}

TEST_F(ClientCertificateTest, WithoutACertificateTheServerRefuses) {
  EXPECT_EQ(Report(), -10000);
  EXPECT_EQ(client.UploadLog(server.Url(), path), -10000);
  EXPECT_EQ(server.RequestCount(), 0U);
}

TEST_F(ClientCertificateTest, WrongOrMissingPassPhraseFailsWithoutAskingAnybody) {
  for (const char* passPhrase : {"wrong", ""}) {
    Offer(Tls().clientEncryptedKey, passPhrase);
    EXPECT_EQ(Report(), -10000) << passPhrase;
    EXPECT_THAT(log.Messages(1).at(0), HasSubstr("errorBuf: unable to set private key file: '" +
                                                 Tls().clientEncryptedKey + "' type PEM"));
    log.Clear();
  }
  EXPECT_EQ(server.RequestCount(), 0U);
}

TEST_F(ClientCertificateTest, ShorterPassPhraseKeepsTheTailOfALongerOneUnlessTerminated) {
  server.SetHandler(Always(200));
  const std::string phrase = kPassPhrase;
  Offer(Tls().clientEncryptedKey, phrase + " and more");
  Offer(Tls().clientEncryptedKey, phrase);
  EXPECT_EQ(Report(), -10000);

  Offer(Tls().clientEncryptedKey, phrase + '\0');
  EXPECT_EQ(Report(), 0);
}

TEST_F(ClientCertificateTest, FilesThatAreNotThereFailTheRequest) {
  OfferCertificate(Tls().caCertificate, "/no/such.pem", "/no/such.key", kPassPhrase);

  EXPECT_EQ(Report(), -10000);

  EXPECT_THAT(log.Messages(1).at(0),
              StartsWith("POST failed for " + CurlError(58) + ", resOps: 58, code: 0, errorBuf: "));
}

TEST_F(ClientCertificateTest, ExpiredAndUntrustedClientsAreRefusedByTheServer) {
  OfferCertificate(Tls().caCertificate, Tls().expiredClientCertificate, Tls().expiredClientKey, "");
  EXPECT_EQ(Report(), -10000);
  OfferCertificate(Tls().caCertificate, Tls().untrustedClientCertificate, Tls().untrustedClientKey,
                   "");
  EXPECT_EQ(Report(), -10000);
  EXPECT_EQ(server.RequestCount(), 0U);
}

// Nothing about a server is verified: no CA is looked for.
TEST_F(ClientCertificateTest, CaFileThatIsNotThereDoesNotMatter) {
  server.SetHandler(Always(200, "1"));
  expectedOutput = "1";
  OfferCertificate("/no/such/ca.pem", Tls().clientCertificate, Tls().clientKey, "");

  EXPECT_EQ(Report(), 0);
  EXPECT_EQ(client.RefreshToken(server.Url(), Json("{}"), "t").JsonValueToString(), "1");
  EXPECT_EQ(client.UploadLog(server.Url(), path), 0);
}

TEST_F(ClientCertificateTest, PinnedUploadAsksForTheUrlsHost) {
  server.SetHandler(Always(200));
  Offer(Tls().clientEncryptedKey, kPassPhrase);
  client.SetDomainIp("127.0.0.1");

  EXPECT_EQ(client.UploadLog(server.UrlWithHost("store.example", "/x"), path), 0);

  EXPECT_EQ(server.Request(0).serverName, "store.example");
}

}  // namespace
}  // namespace lumtest
