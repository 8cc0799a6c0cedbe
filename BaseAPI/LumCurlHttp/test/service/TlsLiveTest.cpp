// Client certificates, and servers whose certificates would not stand any verification.

#include <gmock/gmock.h>

#include "LiveFixture.h"
#include "tls/TlsMaterial.h"

namespace lumtest {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr char kPassPhrase[] = "correct horse battery staple";
constexpr char kSubject[] = "CN=Lum test client,O=Lum";

// Made once for all tests of this file.
const TlsMaterial& Material() {
  static const TempDir directory;
  static const TlsMaterial material = lumtools::MakeTlsMaterial(directory.Path(), kPassPhrase);
  return material;
}

WireOptions Serving(const std::string& certificate, const std::string& key,
                    WireTls::ClientCertificate client) {
  WireTls tls;
  tls.certificate = certificate;
  tls.key = key;
  tls.clientCertificate = client;
  tls.clientCa = Material().caCertificate;
  WireOptions options;
  options.tls = tls;
  return options;
}

// A server that lets in only who has a good certificate.
class ClientCertificateTest : public LiveTest {
 protected:
  ClientCertificateTest()
      : LiveTest(Serving(Material().serverCertificate, Material().serverKey,
                         WireTls::ClientCertificate::kRequired)) {}

  void Offer(const std::string& key, const std::string& passPhrase) {
    OfferCertificate(client, Material().caCertificate, Material().clientCertificate, key,
                     passPhrase);
  }

  int Report() { return client.ReportData(server.Url(), Json("{}"), "t", ""); }

  const std::string path = directory.Write("f", "data");
};

TEST_F(ClientCertificateTest, EncryptedKeyServesEveryRequestAfterOneSetting) {
  server.SetHandler(Always(200, "1"));
  expectedOutput = "111";
  Offer(Material().clientEncryptedKey, kPassPhrase);
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

  Offer(Material().clientTraditionalKey, kPassPhrase);
  EXPECT_EQ(Report(), 0);
  Offer(Material().clientKey, "");
  EXPECT_EQ(Report(), 0);
  Offer(Material().clientKey, "a phrase that nobody asks for");
  EXPECT_EQ(Report(), 0);
}

TEST_F(ClientCertificateTest, WithoutACertificateTheServerRefuses) {
  EXPECT_EQ(Report(), -10000);
  EXPECT_EQ(client.UploadLog(server.Url(), path), -10000);
  EXPECT_EQ(server.RequestCount(), 0U);
}

TEST_F(ClientCertificateTest, WrongOrMissingPassPhraseFailsWithoutAskingAnybody) {
  for (const char* passPhrase : {"wrong", ""}) {
    Offer(Material().clientEncryptedKey, passPhrase);
    EXPECT_EQ(Report(), -10000) << passPhrase;
    EXPECT_THAT(log.Messages(1).at(0), HasSubstr("resOps: 58")) << log.Text();
    log.Clear();
  }
  EXPECT_EQ(server.RequestCount(), 0U);
}

TEST_F(ClientCertificateTest, ShorterPassPhraseKeepsTheTailOfALongerOneUnlessTerminated) {
  server.SetHandler(Always(200));
  const std::string phrase = kPassPhrase;
  Offer(Material().clientEncryptedKey, phrase + " and more");
  Offer(Material().clientEncryptedKey, phrase);
  EXPECT_EQ(Report(), -10000);

  Offer(Material().clientEncryptedKey, phrase + '\0');
  EXPECT_EQ(Report(), 0);
}

TEST_F(ClientCertificateTest, FilesThatAreNotThereFailTheRequest) {
  OfferCertificate(client, Material().caCertificate, "/no/such.pem", "/no/such.key", kPassPhrase);

  EXPECT_EQ(Report(), -10000);

  EXPECT_THAT(log.Messages(1).at(0),
              StartsWith("POST failed for " + CurlError(58) + ", resOps: 58, code: 0, errorBuf: "));
}

TEST_F(ClientCertificateTest, ExpiredAndUntrustedClientsAreRefusedByTheServer) {
  OfferCertificate(client, Material().caCertificate, Material().expiredClientCertificate,
                   Material().expiredClientKey, "");
  EXPECT_EQ(Report(), -10000);
  OfferCertificate(client, Material().caCertificate, Material().untrustedClientCertificate,
                   Material().untrustedClientKey, "");
  EXPECT_EQ(Report(), -10000);
  EXPECT_EQ(server.RequestCount(), 0U);
}

TEST_F(ClientCertificateTest, RefusedPassPhraseLeavesTheCertificateOff) {
  client.SetSslInfo(Material().caCertificate, Material().clientCertificate, Material().clientKey,
                    nullptr, 0);

  EXPECT_EQ(Report(), -10000);
  EXPECT_TRUE(log.Has(1, "invalid certPaas"));
  EXPECT_EQ(server.RequestCount(), 0U);
}

// --- Nothing about a server is verified ---

struct BadServer {
  const char* name;
  std::string TlsMaterial::*certificate;
  std::string TlsMaterial::*key;
};

void PrintTo(const BadServer& bad, std::ostream* out) {
  *out << bad.name;
}

class UnverifiedServerTest : public LiveTest, public ::testing::WithParamInterface<BadServer> {
 protected:
  UnverifiedServerTest()
      : LiveTest(Serving(Material().*GetParam().certificate, Material().*GetParam().key,
                         WireTls::ClientCertificate::kOptional)) {
    server.SetHandler(Always(200, "1"));
  }

  void ExpectAllAccepted() {
    int status = 0;
    EXPECT_EQ(client.Get(server.Url(), {}, status).JsonValueToString(), "1") << log.Text();
    EXPECT_EQ(client.RefreshToken(server.Url(), Json("{}"), "t").JsonValueToString(), "1");
    EXPECT_EQ(client.ReportData(server.Url(), Json("{}"), "t", ""), 0);
    EXPECT_EQ(client.ReportDataWithGzip(server.Url(), Json(R"({"a": "some document"})"), "t"), 0);
    EXPECT_EQ(client.UploadLog(server.Url(), path), 0);
    expectedOutput += "1";
  }

  const std::string path = directory.Write("f", "data");
};

TEST_P(UnverifiedServerTest, IsAcceptedWithoutACertificateOfOurOwn) {
  ExpectAllAccepted();
  EXPECT_EQ(server.Request(0).clientSubject, "");
}

TEST_P(UnverifiedServerTest, IsAcceptedWithOne) {
  OfferCertificate(client, Material().caCertificate, Material().clientCertificate,
                   Material().clientEncryptedKey, kPassPhrase);
  ExpectAllAccepted();
  EXPECT_EQ(server.Request(0).clientSubject, kSubject);
}

TEST_P(UnverifiedServerTest, IsAcceptedWithACaFileThatIsNotThere) {
  OfferCertificate(client, "/no/such/ca.pem", Material().clientCertificate, Material().clientKey,
                   "");
  ExpectAllAccepted();
}

INSTANTIATE_TEST_SUITE_P(
    Servers, UnverifiedServerTest,
    ::testing::Values(BadServer{"Good", &TlsMaterial::serverCertificate, &TlsMaterial::serverKey},
                      BadServer{"Expired", &TlsMaterial::expiredServerCertificate,
                                &TlsMaterial::expiredServerKey},
                      BadServer{"WrongHost", &TlsMaterial::wrongHostServerCertificate,
                                &TlsMaterial::wrongHostServerKey},
                      BadServer{"Untrusted", &TlsMaterial::untrustedServerCertificate,
                                &TlsMaterial::untrustedServerKey}),
    [](const ::testing::TestParamInfo<BadServer>& instance) { return instance.param.name; });

TEST_F(ClientCertificateTest, PinnedUploadAsksForTheUrlsHost) {
  server.SetHandler(Always(200));
  Offer(Material().clientEncryptedKey, kPassPhrase);
  client.SetDomainIp("127.0.0.1");

  EXPECT_EQ(client.UploadLog(server.UrlWithHost("store.example", "/x"), path), 0);

  EXPECT_EQ(server.Request(0).serverName, "store.example");
}

}  // namespace
}  // namespace lumtest
