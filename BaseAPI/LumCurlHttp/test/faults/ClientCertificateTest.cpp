// The certificates that operations offer to a server: which do, what comes of each, and how long
// the pass phrase of a key serves.

#include "FaultTest.h"

namespace lumtest {
namespace {

const Ending kWorks{0, 200, kReply};

// A server that lets in only who has a good certificate.
WireOptions Strict() {
  WireOptions options = TlsOptions(WireTls::ClientCertificate::kRequired);
  options.tls->maxVersion = 0x0303;  // TLS 1.2, whose handshake itself fails
  return options;
}

class CertificateOffer : public FaultTest {
 protected:
  void SetUp() override {}

  void Offer(const std::string& key, const std::string& passPhrase) {
    caller.OfferCertificate(Tls().caCertificate, Tls().clientCertificate, key, passPhrase);
  }
};

// --- Those that offer none ---

class NoCertificateTest : public CertificateOffer {};

// LumCurlHttp does where it is told to use its files, and in no download; LumCurlOrvOps once it has
// a pass phrase.
TEST_P(NoCertificateTest, IsOfferedUnlessItIsAskedFor) {
  if (GetParam().kind == Kind::kJson || GetParam().kind == Kind::kDownload) {
    Offer(Tls().clientKey, "");
  }
  Serve(TlsOptions(WireTls::ClientCertificate::kOptional));
  EXPECT_EQ(server->Request(0).clientSubject, "");

  const WireServer strict(Strict());
  FaultAt(strict.Url("/x"), {{35, 0, "", ".*"}});
  EXPECT_EQ(strict.RequestCount(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Operations, NoCertificateTest, ::testing::ValuesIn(Operations()), NameOf);

// --- Those that offer one, each transfer of the two clients once ---

class ClientCertificateTest : public CertificateOffer {
 protected:
  void SetUp() override {
    caller.useSsl = true;
    Offer(Tls().clientKey, "");
    Serve(TlsOptions(WireTls::ClientCertificate::kRequired));
  }

  void TearDown() override {
    Offer(Tls().clientKey, "");
    FaultTest::TearDown();
  }

  void ExpectWorks() {
    const std::size_t number = server->RequestCount();
    server->Script(JsonReply(kReply));
    Fault({kWorks});
    EXPECT_EQ(server->Request(number).clientSubject, "CN=Lum test client,O=Lum");
  }

  // The key is not to be had: nobody is asked for its pass phrase.
  void ExpectBadKey() { Fault({{CurlBadKey(), 0, "", "unable to set private key file: .*"}}); }

  // LumCurlHttp takes a pass phrase for one request.
  bool UsesPhraseUp() const { return GetParam().kind == Kind::kJson; }
};

INSTANTIATE_TEST_SUITE_P(
    Operations, ClientCertificateTest,
    ::testing::Values(OperationNamed("General_Get"), OperationNamed("General_Post"),
                      OperationNamed("Service_Get"), OperationNamed("RefreshToken"),
                      OperationNamed("ReportData"), OperationNamed("UploadLog_Limit")),
    NameOf);

TEST_P(ClientCertificateTest, ServesWithAKeyOfEachForm) {
  for (const std::string& key : {Tls().clientEncryptedKey, Tls().clientTraditionalKey}) {
    Offer(key, kPassPhrase);
    ExpectWorks();
  }
  Offer(Tls().clientKey, "a phrase that nobody asks for");
  ExpectWorks();
  ExpectWorks();
}

TEST_P(ClientCertificateTest, IsAFailureWithoutItsKeyOrFiles) {
  const std::string missing = "/nonexistent/client.pem";
  const Ending badKey{CurlBadKey(), 0, "", "unable to set private key file: .*"};
  // libcurl takes a server's word of an expired certificate for one of the server's own.
  const std::vector<Ending> refused = {{35, 0, "", ".*"}, {60, 0, "", "SSL certificate .*"}};
  const struct {
    const char* name;
    std::string certificate;
    std::string key;
    std::string passPhrase;
    std::vector<Ending> endings;
  } kOffers[] = {
      {"WrongPhrase", Tls().clientCertificate, Tls().clientEncryptedKey, "wrong", {badKey}},
      {"NoPhrase", Tls().clientCertificate, Tls().clientEncryptedKey, "", {badKey}},
      {"KeyMissing", Tls().clientCertificate, missing, kPassPhrase, {badKey}},
      {"KeyOfAnother",
       Tls().clientCertificate,
       Tls().untrustedClientKey,
       "",
       {{CurlBadKey(), 0, "", ".*"}}},
      {"CertificateMissing", missing, Tls().clientKey, "", {{58, 0, "", ".*" + missing + ".*"}}},
      {"Expired", Tls().expiredClientCertificate, Tls().expiredClientKey, "", refused},
      {"Untrusted", Tls().untrustedClientCertificate, Tls().untrustedClientKey, "", refused},
  };
  const WireServer strict(Strict());
  for (const auto& offer : kOffers) {
    SCOPED_TRACE(offer.name);
    caller.OfferCertificate(Tls().caCertificate, offer.certificate, offer.key, offer.passPhrase);
    FaultAt(strict.Url("/x"), offer.endings);
  }
  EXPECT_EQ(strict.RequestCount(), 0U);
}

// LumCurlOrvOps verifies nothing: no CA is looked for.
TEST_P(ClientCertificateTest, NeedsTheCaFileWhereTheServerIsVerified) {
  caller.OfferCertificate("/nonexistent/ca.pem", Tls().clientCertificate, Tls().clientKey, "");
  if (UsesPhraseUp()) {
    Fault({{77, 0, "", ".*/nonexistent/ca.pem.*"}});
  } else {
    ExpectWorks();
  }
}

// --- The pass phrase ---

TEST_P(ClientCertificateTest, TakesAPassPhraseForOneRequestOrForAll) {
  Offer(Tls().clientEncryptedKey, kPassPhrase);
  ExpectWorks();
  if (UsesPhraseUp()) {
    ExpectBadKey();
  } else {
    ExpectWorks();
  }
}

TEST_P(ClientCertificateTest, UsesAPassPhraseUpInAFailedRequestToo) {
  const RefusedPort refused;
  Offer(Tls().clientEncryptedKey, kPassPhrase);
  FaultAt(refused.Url("https", "/x"), {{7, 0, "", CurlRefused("127.0.0.1")}});
  if (UsesPhraseUp()) {
    ExpectBadKey();
  } else {
    ExpectWorks();
  }
}

TEST_P(ClientCertificateTest, KeepsItsPassPhraseInARequestWithoutTls) {
  WireServer plain;
  plain.SetHandler([](const WireRequest&) { return JsonReply(kReply); });
  Offer(Tls().clientEncryptedKey, kPassPhrase);
  caller.useSsl = false;
  FaultAt(plain.Url("/x"), {kWorks});
  caller.useSsl = true;
  ExpectWorks();

  // Nor do the files turn http into https.
  FaultAt(plain.Url("/x"), {kWorks});
  EXPECT_FALSE(plain.Request(1).tls);
}

// A longer one that no request has used leaves its tail behind a shorter one.
TEST_P(ClientCertificateTest, HasTheTailOfALongerPassPhraseUnlessTerminated) {
  const std::string phrase = kPassPhrase;
  for (const bool terminated : {false, true}) {
    Offer(Tls().clientEncryptedKey, phrase + " and more");
    Offer(Tls().clientEncryptedKey, terminated ? phrase + '\0' : phrase);
    if (terminated) {
      ExpectWorks();
    } else {
      ExpectBadKey();
    }
  }
}

}  // namespace
}  // namespace lumtest
