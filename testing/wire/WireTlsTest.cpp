// The wire server over TLS.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <stdexcept>
#include <string>

#include "support/Files.h"
#include "tls/TlsMaterial.h"
#include "wire/Digest.h"
#include "wire/WireClient.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Client = WireTls::ClientCertificate;

const char kGet[] = "GET / HTTP/1.1\r\n\r\n";

const TlsMaterial& Made() {
  static const TempDir directory;
  static const TlsMaterial made = lumtools::MakeTlsMaterial(directory.Path(), "pass phrase");
  return made;
}

WireOptions Options(Client clientCertificate = Client::kNone, int maxVersion = 0) {
  WireOptions options;
  options.tls = MakeWireTls(Made(), clientCertificate);
  options.tls->maxVersion = maxVersion;
  return options;
}

WireClientTls Trusting() {
  WireClientTls tls;
  tls.ca = Made().caCertificate;
  return tls;
}

WireClientTls WithCertificate() {
  WireClientTls tls = Trusting();
  tls.certificate = Made().clientCertificate;
  tls.key = Made().clientKey;
  return tls;
}

TEST(WireTls, TellsWhoCameAndHow) {
  WireServer server(Options(Client::kOptional));
  EXPECT_THAT(server.Url("/x"), StartsWith("https://127.0.0.1:"));
  server.Script(StatusReply(200, "a").Close()).Script(StatusReply(200, "b").Close());
  WireClientTls tls = WithCertificate();
  tls.serverName = "some.example";
  WireClient with("127.0.0.1", server.Port());
  with.StartTls(tls);
  ASSERT_TRUE(with.Send(kGet));
  EXPECT_THAT(with.ReadAll(), HasSubstr("\r\n\r\na"));
  EXPECT_TRUE(with.SawTlsClose());
  with.Close();
  WireClient without("127.0.0.1", server.Port());
  without.StartTls(Trusting());
  ASSERT_TRUE(without.Send(kGet));
  EXPECT_THAT(without.ReadAll(), HasSubstr("\r\n\r\nb"));
  without.Close();
  ASSERT_TRUE(server.WaitIdle());
  for (const std::size_t i : {0u, 1u}) {
    EXPECT_TRUE(server.Request(i).tls);
    EXPECT_EQ(server.Request(i).head, kGet);
    EXPECT_EQ(server.Request(i).clientSubject, i == 0 ? "CN=Lum test client,O=Lum" : "");
    EXPECT_EQ(server.Request(i).serverName, i == 0 ? "some.example" : "");
    const WireConnection connection = server.Connections()[i];
    EXPECT_EQ(connection.tlsVersion, "TLSv1.3");
    EXPECT_EQ(connection.serverName, server.Request(i).serverName);
    EXPECT_EQ(connection.clientSubject, server.Request(i).clientSubject);
    EXPECT_EQ(connection.tlsError, "");
    EXPECT_EQ(connection.end, WireEnd::kByServer);
  }
}

TEST(WireTls, RefusesClientsWithoutAGoodCertificate) {
  WireServer server(Options(Client::kRequired, TLS1_2_VERSION));
  WireClientTls untrusted = Trusting();
  untrusted.certificate = Made().untrustedClientCertificate;
  untrusted.key = Made().untrustedClientKey;
  WireClientTls expired = Trusting();
  expired.certificate = Made().expiredClientCertificate;
  expired.key = Made().expiredClientKey;
  std::size_t connections = 0;
  for (const WireClientTls& tls : {Trusting(), untrusted, expired}) {
    WireClient client("127.0.0.1", server.Port());
    EXPECT_THROW(client.StartTls(tls), std::runtime_error);
    EXPECT_THAT(client.TlsError(), HasSubstr("alert"));
    client.Close();
    ASSERT_TRUE(server.WaitForConnections(++connections));
    ASSERT_TRUE(server.WaitIdle());
    const WireConnection connection = server.Connections().back();
    EXPECT_EQ(connection.end, WireEnd::kNoTls);
    EXPECT_THAT(connection.tlsError, HasSubstr("certificate"));
    EXPECT_FALSE(connection.tls);
  }
  EXPECT_EQ(server.RequestCount(), 0u);
  server.Script(StatusReply(200));
  WireClient client("127.0.0.1", server.Port());
  client.StartTls(WithCertificate());
  ASSERT_TRUE(client.Send(kGet));
  EXPECT_THAT(client.ReadUntil("\r\n\r\n"), StartsWith("HTTP/1.1 200"));
  EXPECT_EQ(server.Connections().back().tlsVersion, "TLSv1.2");
}

TEST(WireTls, ToldByAlertAfterTheHandshakeWithTls13) {
  WireServer server(Options(Client::kRequired));
  WireClient client("127.0.0.1", server.Port());
  client.StartTls(Trusting());
  client.Send(kGet);
  EXPECT_EQ(client.ReadAll(), "");
  EXPECT_THAT(client.TlsError(), HasSubstr("certificate required"));
}

TEST(WireTls, ShowsTheCertificateItIsGiven) {
  WireOptions options = Options();
  options.tls->certificate = Made().untrustedServerCertificate;
  options.tls->key = Made().untrustedServerKey;
  WireServer server(options);
  WireClient client("127.0.0.1", server.Port());
  WireClientTls tls = Trusting();
  tls.serverName = "name.example";
  EXPECT_THROW(client.StartTls(tls), std::runtime_error);
  EXPECT_THAT(client.TlsError(), HasSubstr("certificate verify failed"));
  client.Close();
  ASSERT_TRUE(server.WaitForConnections(1));
  ASSERT_TRUE(server.WaitIdle());
  EXPECT_THAT(server.Connections()[0].tlsError, HasSubstr("unknown ca"));
  EXPECT_EQ(server.Connections()[0].serverName, "name.example");
}

TEST(WireTls, RefusesMaterialThatDoesNotFit) {
  WireOptions options = Options();
  options.tls->key = Made().clientKey;
  EXPECT_THROW(WireServer{options}, std::runtime_error);
  options = Options();
  options.tls->certificate = "/nowhere.pem";
  try {
    const WireServer server(options);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("/nowhere.pem"));
  }
  options = Options(Client::kRequired);
  options.tls->clientCa = "/nowhere.pem";
  EXPECT_THROW(WireServer{options}, std::runtime_error);
}

TEST(WireTls, MovesLargeBodiesBothWays) {
  WireServer server(Options());
  server.Script(GeneratedReply(3000001).Close());
  WireClient client("127.0.0.1", server.Port());
  client.StartTls(Trusting());
  const std::string body = GeneratedBytes(0, 4000000);
  ASSERT_TRUE(client.Send("POST / HTTP/1.1\r\nContent-Length: 4000000\r\n\r\n" + body));
  client.ReadUntil("\r\n\r\n");
  EXPECT_EQ(Sha256Hex(client.ReadAll()), GeneratedSha256(3000001));
  EXPECT_EQ(server.Request(0).bodySha256, GeneratedSha256(4000000));
}

TEST(WireTls, StopsAtAByteOfTheRequest) {
  WireServer server(Options());
  server.Script(WireReply().AtBytes(5).Send("early").Close());
  WireClient client("127.0.0.1", server.Port());
  client.StartTls(Trusting());
  ASSERT_TRUE(client.Send("GET /"));
  EXPECT_EQ(client.ReadAll(), "early");
  client.Close();
  ASSERT_TRUE(server.WaitIdle());
  EXPECT_EQ(server.Connections()[0].bytesReceived, 5u);
}

TEST(WireTls, EndsInEveryWay) {
  WireServer server(Options());
  const std::string begun = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc";
  server.Script(WireReply(begun).Close());
  server.Script(WireReply(begun).Drop());
  server.Script(WireReply(begun).Reset());
  server.Script(WireReply(begun).Alert());
  server.Script(WireReply(begun).SendBeneathTls("this is no TLS record").Close());
  for (int i = 0; i < 5; ++i) {
    WireClient client("127.0.0.1", server.Port());
    client.StartTls(Trusting());
    ASSERT_TRUE(client.Send(kGet));
    EXPECT_EQ(client.ReadAll(), begun) << i;
    EXPECT_EQ(client.SawTlsClose(), i == 0) << i;
    EXPECT_EQ(client.WasReset(), i == 2) << i;
    // The last in the words of OpenSSL 3.0, or of 3.5.
    EXPECT_THAT(client.TlsError(), ContainsRegex(i == 1   ? "unexpected eof"
                                                 : i == 3 ? "alert bad record mac"
                                                 : i == 4 ? "wrong version number|bad record type"
                                                          : ""));
  }
}

TEST(WireTls, HalfClosesAndGoesOnReading) {
  WireServer server(Options());
  server.Script(StatusReply(200, "ok").At(WireStart::kHead).HalfClose().ReadBody());
  WireClient client("127.0.0.1", server.Port());
  client.StartTls(Trusting());
  ASSERT_TRUE(client.Send("POST / HTTP/1.1\r\nContent-Length: 3\r\n\r\n"));
  EXPECT_THAT(client.ReadAll(), HasSubstr("ok"));
  EXPECT_TRUE(client.SawTlsClose());
  ASSERT_TRUE(client.Send("abc"));
  ASSERT_TRUE(server.WaitForRequests(1));
  EXPECT_EQ(server.Request(0).body, "abc");
}

TEST(WireTls, RunsConnectionScriptsBeforeAndAfterTheHandshake) {
  WireServer server(Options());
  WireGate gate;
  server.Script(WireReply().At(WireStart::kAccept).Drop());
  server.Script(WireReply().At(WireStart::kAccept).Send("220 not TLS\r\n").Close());
  server.Script(WireReply().At(WireStart::kHandshake).Send("early").Close());
  for (int i = 0; i < 2; ++i) {
    WireClient client("127.0.0.1", server.Port());
    EXPECT_THROW(client.StartTls(Trusting()), std::runtime_error) << i;
  }
  WireClient client("127.0.0.1", server.Port());
  client.StartTls(Trusting());
  EXPECT_EQ(client.ReadAll(), "early");
}

TEST(WireTls, StopsInTheMidstOfHandshakesAndTransfers) {
  WireServer server(Options());
  WireClient silent("127.0.0.1", server.Port());
  server.Script(WireReply().Forever("for ever"));
  WireClient reading("127.0.0.1", server.Port());
  reading.StartTls(Trusting());
  ASSERT_TRUE(reading.Send(kGet));
  ASSERT_TRUE(server.WaitForRequests(1));
  ASSERT_TRUE(server.WaitForConnections(2));
  server.Stop();
  EXPECT_TRUE(server.WaitIdle(std::chrono::milliseconds(0)));
  for (const WireConnection& connection : server.Connections()) {
    EXPECT_EQ(connection.end, WireEnd::kByServer);
  }
}

}  // namespace
}  // namespace lumtest
