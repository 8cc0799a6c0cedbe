// Where requests leave from and arrive at: pinned hosts, interfaces by name and by MAC.

#include "ServiceLiveTest.h"
#include "support/NetNamespace.h"

namespace lumtest {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class BindingLiveTest : public ServiceLiveTest {
 protected:
  std::string Url() const { return server.Url("/bucket/x.zip"); }

  const std::string path = directory.Write("x.zip", "the archive");
};

// Uploads to a made-up host that is pinned to the server's address.
class PinningLiveTest : public ServiceLiveTest {
 protected:
  void ExpectReached(const WireOptions& options) {
    WireServer pinned(options);
    pinned.SetHandler(Always(200));
    const std::string url = pinned.UrlWithHost("nowhere.example", "/x");
    const std::string path = directory.Write("f", "data");
    const std::string host = "nowhere.example:" + std::to_string(pinned.Port());

    client.SetDomainIp(options.address);
    EXPECT_EQ(client.UploadLog(url, path), 0) << log.Text();
    client.SetSwiftIp(options.address);
    EXPECT_EQ(client.UploadVideoFile(url, path, 5), 0) << log.Text();

    EXPECT_EQ(pinned.Connections().at(0).localAddress, options.address);
    EXPECT_EQ(pinned.Request(0).Header("Host"), host);
    EXPECT_EQ(pinned.Request(1).body, "data");
    EXPECT_EQ(pinned.Request(1).serverName, options.tls ? "nowhere.example" : "");
    EXPECT_THAT(log.Messages(3), Contains("Set domain=" + host + ":" + options.address));
  }
};

TEST_F(PinningLiveTest, ReachesAnotherAddress) {
  WireOptions options;
  options.address = "127.0.0.2";
  ExpectReached(options);
}

TEST_F(PinningLiveTest, ReachesAnIpv6Address) {
  ExpectReached(IPv6Options());
}

TEST_F(PinningLiveTest, AsksForTheUrlsHostOverTls) {
  ExpectReached(TlsOptions());
}

TEST_F(BindingLiveTest, AddressThatIsNoneFailsTheUpload) {
  client.SetDomainIp("not an address");
  EXPECT_EQ(client.UploadLog(server.UrlWithHost("nowhere.example", "/x"), path, 5), -10000);

  EXPECT_GE(log.Count(1), 2U) << log.Text();
  EXPECT_EQ(server.Connections().size(), 0U);
}

TEST_F(BindingLiveTest, BoundToTheLoopbackInterfaceReachesIt) {
  server.SetHandler(Always(200, "1"));
  expectedOutput = "1";
  int status = 0;
  client.SetBindInterface("lo");

  EXPECT_EQ(client.UploadLog(Url(), path, 5), 0);
  client.Get(server.Url(), {}, status);
  EXPECT_EQ(status, 200);
  EXPECT_EQ(client.ReportData(server.Url(), Json("{}"), "t", ""), 0);
  EXPECT_EQ(client.RefreshToken(server.Url(), Json("{}"), "t").JsonValueToString(), "1");

  EXPECT_THAT(log.Messages(3),
              ElementsAre("set bind interface=lo", "Set interface=lo", "Set interface=lo",
                          "Set interface=lo", "Set interface=lo"));
}

TEST_F(BindingLiveTest, BoundToAnInterfaceThatIsNotThereFails) {
  client.SetBindInterface("if!nosuchinterface0");
  int status = -7;

  EXPECT_TRUE(client.Get(server.Url(), {}, status).IsNull());
  EXPECT_EQ(status, 0);
  EXPECT_EQ(client.UploadLog(Url(), path, 5), -10000);

  EXPECT_EQ(server.Connections().size(), 0U);
  EXPECT_THAT(log.Messages(1).at(0), HasSubstr("resOps: 45"));
}

TEST_F(BindingLiveTest, MacThatNoInterfaceHasBindsToNone) {
  server.SetHandler(Always(200));
  client.SetBindMac("02:00:5e:00:53:01");

  EXPECT_EQ(client.UploadLog(Url(), path, 5), 0);

  EXPECT_THAT(log.Messages(3),
              ElementsAre("set bind mac=02:00:5e:00:53:01", "Update interface name="));
}

// --- In a network of the test's own ---

constexpr char kMac[] = "02:4c:75:6d:00:01";  // of lum0, at 10.203.0.1
constexpr char kPeerAddress[] = "10.203.0.2";

// Runs `call` with a client and a server on the other end of the pair.
void WithPeerServer(const std::function<void(LumCurlOrvOps&, WireServer&)>& call) {
  NetNamespaceOptions network;
  network.veth = true;
  network.mac = kMac;
  network.peerAddress = kPeerAddress;
  const auto run = [&call] {
    std::unique_ptr<WireServer> server;
    InPeerNamespace([&server] {
      WireOptions options;
      options.address = kPeerAddress;
      server = std::make_unique<WireServer>(options);
    });
    server->SetHandler(Always(200));
    {
      LumCurlOrvOps client;
      client.CurlGlobalInit();
      call(client, *server);
    }
    server.reset();
    return ::testing::Test::HasFailure() ? 1 : 0;
  };
  const NetNamespaceResult result = RunInNetNamespace(run, network);
  EXPECT_TRUE(result.Succeeded()) << result.Describe();
}

TEST(NamespaceLiveTest, MacIsTurnedIntoItsInterfaceAndKept) {
  WithPeerServer([](LumCurlOrvOps& client, WireServer& server) {
    TempDir directory;
    LogCapture log;
    int status = 0;
    client.SetBindMac("02-4C-75-6D-00-01");

    EXPECT_EQ(client.UploadLog(server.Url(), directory.Write("f", "data")), 0);
    client.Get(server.Url(), {}, status);

    EXPECT_EQ(status, 200);
    EXPECT_EQ(server.Connections().at(0).peerAddress, "10.203.0.1");
    EXPECT_THAT(log.Messages(3),
                ElementsAre("set bind mac=02-4C-75-6D-00-01", "Update interface name=lum0",
                            "Set interface=lum0", "Set interface=lum0"))
        << log.Text();
  });
}

TEST(NamespaceLiveTest, InterfaceThatDoesNotLeadThereReachesNothing) {
  WithPeerServer([](LumCurlOrvOps& client, WireServer& server) {
    LogCapture log;
    int status = 0;
    client.SetBindInterface("lo");
    client.SetBindMac(kMac);

    EXPECT_TRUE(client.Get(server.Url(), {}, status).IsNull());

    EXPECT_EQ(status, 0) << "the name goes before the MAC";
    EXPECT_EQ(server.Connections().size(), 0U);
  });
}

}  // namespace
}  // namespace lumtest
