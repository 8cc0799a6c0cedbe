// TLS that breaks, and servers with certificates that are not good, for every operation.

#include "FaultTest.h"

namespace lumtest {
namespace {

// Like FaultTest, but the server always speaks TLS.
class TlsFaultTest : public FaultTest {
 protected:
  void SetUp() override { Serve(TlsOptions()); }
};

// --- Connections ---

struct TlsFault {
  const char* name;
  WireReply reply;
  Ending ending;
};

std::vector<TlsFault> TlsFaults() {
  const std::string part = WireHead(200, {"Content-Length: 100"}) + kReply;
  const Ending dropped{56, 200, kReply,
                       "OpenSSL SSL_read: .*unexpected eof while reading, errno 0"};
  return {
      {"AlertInMidBody",
       WireReply(part).Alert(),
       {56, 200, kReply, "OpenSSL SSL_read: .* alert bad record mac, errno 0"}},
      // An end without TLS's own goodbye is an end to libcurl 7.88, which then counts the bytes.
      {"DroppedInMidBody", WireReply(part).Drop(),
       ByCurl(Ending{18, 200, kReply, CurlBytesMissing(87)}, dropped)},
      {"DroppedWithoutALength", WireReply(WireHead(200) + kReply).Drop(),
       ByCurl(Ending{0, 200, kReply}, dropped)},
      {"ClosedInMidBody", WireReply(part).Close(), {18, 200, kReply, CurlBytesMissing(87)}},
      {"ResetInMidBody",
       WireReply(part).Reset(),
       {56, 200, kReply, "Recv failure: Connection reset by peer"}},
      {"RecordThatDoesNotDecryptInMidBody",
       WireReply(part)
           .SendBeneathTls(std::string("\x17\x03\x03\x00\x28", 5) + std::string(40, 'x'))
           .Stall(),
       {56, 200, kReply, "OpenSSL SSL_read: .*decryption failed or bad record mac, errno 0"}},
      {"PlainTextInMidBody",
       WireReply(part).SendBeneathTls("plain text, and more").Stall(),
       // OpenSSL 3.0's words, and 3.5's
       {56, 200, kReply, "OpenSSL SSL_read: .*(wrong version number|bad record type), errno 0"}},
  };
}

TEST_P(TlsFaultTest, BreaksInMidBody) {
  for (const TlsFault& fault : TlsFaults()) {
    SCOPED_TRACE(fault.name);
    server->Script(fault.reply);
    Fault({fault.ending});
  }
}

TEST_P(TlsFaultTest, BreaksInTheHandshake) {
  const std::string plain = "HTTP/1.1 400 This is HTTPS\r\n\r\n";
  const std::string connect = ByCurl("OpenSSL", "TLS connect error:");
  struct Handshake {
    const char* name;
    WireReply reply;
    std::string error;
  };
  const Handshake kHandshakes[] = {
      {"Closed", WireReply().Close(),
       ByCurl("OpenSSL SSL_connect: SSL_ERROR_SYSCALL in connection to .*",
              "TLS connect error: .*unexpected eof while reading")},
      {"Reset", WireReply().ReadBytes(10).Reset(), "Recv failure: Connection reset by peer"},
      {"PlainText", WireReply(plain).Close(), connect + ".*wrong version number"},
      {"Alert", WireReply(std::string("\x15\x03\x03\x00\x02\x02\x28", 7)).Close(),
       connect + ".*alert handshake failure"},
  };
  for (const Handshake& handshake : kHandshakes) {
    SCOPED_TRACE(handshake.name);
    // The handshake is the client's affair alone.
    WireServer other;
    other.Script(WireReply(handshake.reply).At(WireStart::kHandshake));
    FaultAt("https://127.0.0.1:" + std::to_string(other.Port()) + "/x",
            {{35, 0, "", handshake.error}});
    EXPECT_TRUE(other.WaitIdle());
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, TlsFaultTest, ::testing::ValuesIn(Operations()), NameOf);

// Every byte beneath the encryption, those of the handshake included.
class TlsResetTest : public TlsFaultTest {};

TEST_P(TlsResetTest, AtEveryByteOnTheWire) {
  constexpr std::uint64_t kNever = UINT64_MAX;
  WireServer relay;
  server->SetHandler([](const WireRequest&) { return JsonReply(kReply).Close(); });
  const std::string where = "https" + relay.Url("/x").substr(4);
  const auto resetAfter = [&](std::uint64_t clientBytes, std::uint64_t serverBytes) {
    relay.Script(
        WireReply().At(WireStart::kHandshake).PassOn(server->Port(), clientBytes, serverBytes));
  };
  resetAfter(kNever, kNever);
  FaultAt(where, {{0, 200, kReply}});
  ASSERT_TRUE(relay.WaitIdle());
  const WireConnection whole = relay.Connections().at(0);
  const std::uint64_t sizes[] = {whole.bytesReceived, whole.bytesPassedBack};
  std::vector<Ending> endings = {{0, 200, kReply}};
  for (const int code : {35, 56, 55, 7}) {
    endings.push_back(
        {code, 0, "", ".*(reset by peer|SSL|" + CurlErrorPattern(7) + "|not connected).*"});
  }
  for (int side = 0; side < 2; ++side) {
    int good = 0;
    ASSERT_GT(sizes[side], 100U);
    for (std::uint64_t n = 0; n <= sizes[side] && !HasFailure(); ++n) {
      SCOPED_TRACE((side == 0 ? "client's byte " : "server's byte ") + std::to_string(n));
      resetAfter(side == 0 ? n : kNever, side == 1 ? n : kNever);
      good += FaultAt(where, endings).code == 0 ? 1 : 0;
    }
    // An answer that is whole stands, though the goodbye behind it (some 24 bytes) is lost.
    EXPECT_LT(good, 60);
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, TlsResetTest, ::testing::Values(OperationNamed("General_Get")),
                         NameOf);

// --- Certificates ---

struct Certificate {
  const char* name;
  std::string TlsMaterial::*certificate;
  std::string TlsMaterial::*key;
  const char* refusal;  // libcurl's words where the chain is verified; null: it stands
};

const Certificate kCertificates[] = {
    {"Good", &TlsMaterial::serverCertificate, &TlsMaterial::serverKey, nullptr},
    {"Expired", &TlsMaterial::expiredServerCertificate, &TlsMaterial::expiredServerKey,
     "certificate has expired"},
    {"WrongHost", &TlsMaterial::wrongHostServerCertificate, &TlsMaterial::wrongHostServerKey,
     nullptr},
    {"Untrusted", &TlsMaterial::untrustedServerCertificate, &TlsMaterial::untrustedServerKey,
     ".*certificate.*"},
};

class CertificateTest : public FaultTest {
 protected:
  void SetUp() override {}
  void TearDown() override { EXPECT_EQ(output.Stop(), expectedOutput); }

  static WireOptions Options(const Certificate& certificate) {
    return TlsOptions(Tls().*certificate.certificate, Tls().*certificate.key);
  }
};

// With a CA file and a client certificate in their settings, too.
TEST_P(CertificateTest, NoneIsVerifiedUnlessUseSslAsksForIt) {
  for (const bool withFiles : {false, true}) {
    if (withFiles) {
      const TlsMaterial& tls = Tls();
      caller.OfferCertificate(tls.caCertificate, tls.clientCertificate, tls.clientKey, "");
    }
    for (const Certificate& certificate : kCertificates) {
      SCOPED_TRACE(certificate.name);
      Serve(Options(certificate));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, CertificateTest, ::testing::ValuesIn(Operations()), NameOf);

// With useSsl the chain is verified against the CA file, the host name is not.
TEST(VerifiedCertificateTest, GetAndPostRefuseAllButAWrongHost) {
  LogCapture log;
  LumCurlHttp client;
  const TlsMaterial& tls = Tls();
  client.SetSslInfo(tls.caCertificate, tls.clientCertificate, tls.clientKey, nullptr, 0);
  for (const Certificate& certificate : kCertificates) {
    SCOPED_TRACE(certificate.name);
    WireServer server(TlsOptions(tls.*certificate.certificate, tls.*certificate.key));
    server.SetHandler([](const WireRequest&) { return JsonReply(kReply); });
    for (const bool post : {false, true}) {
      int code = 7;
      log.Clear();
      const LumJson::Value value = post ? client.Post(server.Url(), "{}", true, code)
                                        : client.Get(server.Url(), "", true, code);
      if (certificate.refusal == nullptr) {
        EXPECT_EQ(code, 200) << log.Text();
        EXPECT_EQ(value.JsonValueToString(), kReply);
        EXPECT_EQ(log.Count(), 0u);
        continue;
      }
      EXPECT_EQ(code, -1);
      EXPECT_TRUE(value.IsNull());
      EXPECT_THAT(log.Messages(),
                  ::testing::ElementsAre(::testing::MatchesRegex(
                      std::string(post ? "POST" : "GET") + " failed for " + CurlErrorPattern(60) +
                      ", ret: 60, code: 0, errorBuf: " + CurlBadCertificate(certificate.refusal))));
    }
    EXPECT_EQ(server.RequestCount(), certificate.refusal == nullptr ? 2u : 0u);
  }
}

}  // namespace
}  // namespace lumtest
