// GetPropertyString over real sockets: the bytes that the server sees, and what becomes of its
// answers.

#include <HttpResult.h>
#include <LumApollo.h>

#include "../http/LiveTest.h"

namespace lumtest {
namespace {

using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StrCaseEq;

const char kAnswer[] =
    "{\"appId\":\"app\",\"cluster\":\"default\",\"namespaceName\":\"space\","
    "\"configurations\":{\"timeout\":\"200\"},\"releaseKey\":\"1\"}\r\n ";

class ApolloLiveTest : public LiveTest {
 protected:
  static std::string Host(const WireServer& server, const std::string& name = "127.0.0.1") {
    return name + ":" + std::to_string(server.Port());
  }

  HttpResult Read(const std::string& host) {
    env.configServer = host;
    return Quietly([this] { return apollo.GetPropertyString(env); });
  }

  // A request that fails: -1, the text and one line say why.
  void ExpectFailure(const std::string& host, int code, const std::string& reason) {
    log.Clear();
    const HttpResult result = Read(host);
    EXPECT_EQ(result.code, -1);
    EXPECT_THAT(result.body, MatchesRegex("POST failed for: " + reason + " \\."));
    ASSERT_EQ(log.Count(), 1u);
    EXPECT_THAT(log.Last().message,
                MatchesRegex("POST\\(https://.*/configs/app/default/space\\) failed for " +
                             CurlErrorPattern(code) + ", rps: " + std::to_string(code) +
                             ", code: [0-9]+, errorBuf: " + reason));
    EXPECT_EQ(log.Last().level, 1);
    EXPECT_EQ(log.Last().file, "BaseAPI/LumCurlHttp/src/LumApolloPrivate");
    EXPECT_EQ(log.Last().function, "GetPropertyString");
  }

  LumApollo apollo;
  LumApolloEnv env{"", "app", "", "space"};
};

TEST_F(ApolloLiveTest, SendsTheseBytesAndHandsTheDocumentBackUnchanged) {
  WireServer server(TlsOptions());
  server.Script(JsonReply(kAnswer));
  const HttpResult result = Read(Host(server));
  EXPECT_EQ(result.code, 200);
  EXPECT_EQ(result.body, kAnswer);
  EXPECT_EQ(env.cluster, "default");
  EXPECT_EQ(server.Request(0).Raw(),
            "GET /configs/app/default/space HTTP/1.1\r\n"
            "Host: " +
                Host(server) +
                "\r\n"
                "Accept: */*\r\n"
                "Content-Type: application/json\r\n"
                "charsets: utf-8\r\n"
                "\r\n");
  EXPECT_TRUE(server.Request(0).tls);
  EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST_F(ApolloLiveTest, FieldsGoIntoTheUrlAsTheyStand) {
  WireServer server(TlsOptions());
  server.Script(JsonReply(kAnswer));
  env = {"", "a%20p", "c%s%n", "n?ip=%d&x=1"};
  EXPECT_EQ(Read(Host(server)).code, 200);
  EXPECT_EQ(server.Request(0).target, "/configs/a%20p/c%s%n/n?ip=%d&x=1");
}

TEST_F(ApolloLiveTest, LibcurlEncodesBytesBeyondAsciiInThePathAlone) {
  WireServer server(TlsOptions());
  server.SetHandler([](const WireRequest&) { return JsonReply(kAnswer); });
  env = {"", "\xC3\xBC", "c", "n?q=\xC3\xBC"};
  EXPECT_EQ(Read(Host(server)).code, 200);
  EXPECT_THAT(server.Request(0).target, StrCaseEq("/configs/%C3%BC/c/n?q=\xC3\xBC"));
  env = {"", "a", "..", "n#f"};
  EXPECT_EQ(Read(Host(server)).code, 200);
  EXPECT_EQ(server.Request(1).target, "/configs/n");
}

TEST_F(ApolloLiveTest, AHostNameWithAPortIsConnectedTo) {
  WireServer server(TlsOptions());
  server.Script(JsonReply(kAnswer));
  EXPECT_EQ(Read(Host(server, "localhost")).code, 200);
  EXPECT_EQ(server.Request(0).Header("Host"), Host(server, "localhost"));
}

TEST_F(ApolloLiveTest, AUrlOf4095BytesIsSentWhole) {
  WireServer server(TlsOptions());
  server.Script(JsonReply(kAnswer));
  const std::string start = "https://" + Host(server) + "/configs/app/default/";
  env.namespaceName = std::string(4095 - start.size(), 'n');
  EXPECT_EQ(Read(Host(server)).code, 200);
  EXPECT_EQ(server.Request(0).target, "/configs/app/default/" + env.namespaceName);
}

// --- Failures

TEST_F(ApolloLiveTest, AServerThatRequiresACertificateRefuses) {
  WireOptions options = TlsOptions(WireTls::ClientCertificate::kRequired);
  options.tls->maxVersion = 0x0303;  // TLS 1.2, whose handshake itself fails
  WireServer server(options);
  ExpectFailure(Host(server), 35, ".*");
}

// The address is of the other family: libcurl gives up before it tries, and says no more.
TEST_F(ApolloLiveTest, AnIPv6AddressIsNotConnectedTo) {
  WireOptions options = TlsOptions();
  options.address = "::1";
  WireServer server(options);
  if (IsCurl823()) {  // which connects to an address that is written out
    server.Script(JsonReply(kAnswer));
    EXPECT_EQ(Read(Host(server, "[::1]")).code, 200);
    return;
  }
  ExpectFailure(Host(server, "[::1]"), 7, "");
  EXPECT_EQ(server.Connections().size(), 0u);
}

TEST_F(ApolloLiveTest, AHostThatIsNoneIsAFailure) {
  ExpectFailure("bad host", 3, ".*");
}

}  // namespace
}  // namespace lumtest
