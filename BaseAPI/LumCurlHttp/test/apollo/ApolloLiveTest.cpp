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
  ApolloLiveTest() {
    server.SetHandler([](const WireRequest&) { return JsonReply(kAnswer); });
  }

  HttpResult Read(const std::string& configServer) {
    env.configServer = configServer;
    return Quietly([this] { return apollo.GetPropertyString(env); });
  }

  // A request that fails: -1, the text and one line say why.
  void ExpectFailure(const std::string& configServer, int code, const std::string& reason) {
    log.Clear();
    const HttpResult result = Read(configServer);
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

  WireServer server{TlsOptions()};
  const std::string port = ":" + std::to_string(server.Port());
  const std::string host = "127.0.0.1" + port;
  LumApollo apollo;
  LumApolloEnv env{"", "app", "", "space"};
};

TEST_F(ApolloLiveTest, SendsTheseBytesAndHandsTheDocumentBackUnchanged) {
  const HttpResult result = Read(host);
  EXPECT_EQ(result.code, 200);
  EXPECT_EQ(result.body, kAnswer);
  EXPECT_EQ(env.cluster, "default");
  EXPECT_EQ(server.Request(0).Raw(),
            "GET /configs/app/default/space HTTP/1.1\r\n"
            "Host: " +
                host +
                "\r\n"
                "Accept: */*\r\n"
                "Content-Type: application/json\r\n"
                "charsets: utf-8\r\n"
                "\r\n");
  EXPECT_TRUE(server.Request(0).tls);
  EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST_F(ApolloLiveTest, FieldsGoIntoTheUrlAsTheyStand) {
  env = {"", "a%20p", "c%s%n", "n?ip=%d&x=1"};
  EXPECT_EQ(Read(host).code, 200);
  EXPECT_EQ(server.Request(0).target, "/configs/a%20p/c%s%n/n?ip=%d&x=1");
}

TEST_F(ApolloLiveTest, LibcurlEncodesBytesBeyondAsciiInThePathAlone) {
  env = {"", "\xC3\xBC", "c", "n?q=\xC3\xBC"};
  EXPECT_EQ(Read(host).code, 200);
  EXPECT_THAT(server.Request(0).target, StrCaseEq("/configs/%C3%BC/c/n?q=\xC3\xBC"));
  env = {"", "a", "..", "n#f"};
  EXPECT_EQ(Read(host).code, 200);
  EXPECT_EQ(server.Request(1).target, "/configs/n");
}

TEST_F(ApolloLiveTest, AHostNameWithAPortIsConnectedTo) {
  EXPECT_EQ(Read("localhost" + port).code, 200);
  EXPECT_EQ(server.Request(0).Header("Host"), "localhost" + port);
}

TEST_F(ApolloLiveTest, AUrlOf4095BytesIsSentWhole) {
  const std::string start = "https://" + host + "/configs/app/default/";
  env.namespaceName = std::string(4095 - start.size(), 'n');
  EXPECT_EQ(Read(host).code, 200);
  EXPECT_EQ(server.Request(0).target, "/configs/app/default/" + env.namespaceName);
}

// --- Failures

// The address is of the other family: libcurl gives up before it tries, and says no more.
TEST_F(ApolloLiveTest, AnIPv6AddressIsNotConnectedTo) {
  WireOptions options = TlsOptions();
  options.address = "::1";
  WireServer six(options);
  const std::string address = "[::1]:" + std::to_string(six.Port());
  if (IsCurl823()) {  // which connects to an address that is written out
    six.Script(JsonReply(kAnswer));
    EXPECT_EQ(Read(address).code, 200);
    return;
  }
  ExpectFailure(address, 7, "");
  EXPECT_EQ(six.Connections().size(), 0u);
}

TEST_F(ApolloLiveTest, AHostThatIsNoneIsAFailure) {
  ExpectFailure("bad host", 3, ".*");
}

}  // namespace
}  // namespace lumtest
