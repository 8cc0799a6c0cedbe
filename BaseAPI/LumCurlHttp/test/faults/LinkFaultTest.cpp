// Networks that do not deliver: no way to a host, nobody at an address, packets that are lost, late
// or too large. Each in a network namespace of its own.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include "../http/LiveTest.h"
#include "ImpairedLink.h"
#include "LimitFaults.h"
#include "support/NetNamespace.h"
#include "support/Process.h"
#include "support/ProcessState.h"
#include "wire/Socket.h"

namespace lumtest {
namespace {

const char kReply[] = "{\"token\":\"t\"}";
const char kAnyText[] = ".*";

std::string UrlTo(const std::string& host, const Operation& operation) {
  return (operation.NeedsTls() ? "https://" : "http://") + host + "/x";
}

// Runs `function` in a network of its own, with a pair of interfaces where `pair` says so.
void InNetwork(bool pair, const std::function<void()>& function) {
  NetNamespaceOptions options;
  options.veth = pair;
  options.timeout = std::chrono::minutes(3);
  const NetNamespaceResult result = RunInNetNamespace(
      [&] {
        function();
        return ::testing::Test::HasFailure() ? 1 : 0;
      },
      options);
  EXPECT_TRUE(result.Succeeded()) << result.Describe();
}

// Good servers at the far end.
struct FarServers {
  explicit FarServers(const std::string& address, const std::string& reply = kReply) {
    const TlsMaterial& tls = Tls();
    InPeerNamespace([&] {
      WireOptions options;
      options.address = address;
      plain = std::make_unique<WireServer>(options);
      options.tls = MakeWireTls(tls);
      secure = std::make_unique<WireServer>(options);
    });
    for (WireServer* server : {plain.get(), secure.get()}) {
      server->SetHandler([reply](const WireRequest& request) {
        // What answers an upload would go to standard output.
        const bool upload = request.method == "PUT" && !request.HasHeader("X-Auth-Token");
        return StatusReply(200, upload ? "" : reply);
      });
    }
  }

  std::string UrlFor(const Operation& operation) const {
    return (operation.NeedsTls() ? secure : plain)->Url("/x");
  }

  std::unique_ptr<WireServer> plain;
  std::unique_ptr<WireServer> secure;
};

Ending Good(const Operation& operation, const std::string& reply = kReply) {
  return {0, 200, operation.Uploads() ? "" : reply};
}

// All that the time limits may leave, as the connection stood, was asked or answered by then.
std::vector<Ending> TimedOut(const Operation& operation) {
  std::vector<Ending> endings = {{28, 0, "", kAnyText}};
  if (operation.Uploads()) {
    endings.push_back({28, 100, "", kAnyText});
  }
  return endings;
}

double ConnectLimit(const Operation& operation) {
  return std::min(operation.connectLimit, operation.limit);
}

// Across a link that loses packets a server may never hear that its client has gone: here the
// servers end first, then nothing must be left.
void RunAcross(const std::vector<Encounter>& encounters, std::unique_ptr<FarServers> servers,
               std::size_t descriptorsBefore) {
  RunAtOnce(encounters, false);
  servers.reset();
  EXPECT_EQ(OpenDescriptors(), descriptorsBefore)
      << ::testing::PrintToString(DescribeDescriptors());
}

TEST(LinkFaultTest, NoWayThere) {
  InNetwork(false, [] {
    for (const auto& [kind, network] :
         {std::pair("unreachable", "10.1.0.0/16"), std::pair("blackhole", "10.2.0.0/16"),
          std::pair("prohibit", "10.3.0.0/16")}) {
      const ProcessResult added = RunCommand({"ip", "route", "add", kind, network});
      ASSERT_TRUE(added.Succeeded()) << added.Describe();
    }
    std::vector<Encounter> all;
    for (const char* host : {"10.1.0.1", "10.2.0.1", "10.3.0.1", "10.4.0.1"}) {
      for (const Operation& operation : Operations()) {
        // At once: the limit is that of a machine that is busy.
        all.push_back({host,
                       operation,
                       UrlTo(host, operation),
                       0,
                       {{7, 0, "", std::string("Failed to connect to ") + host + "( port |:).*"}}});
      }
    }
    for (const Operation& operation : Operations()) {
      const std::string host = "nowhere.invalid";
      all.push_back({host,
                     operation,
                     UrlTo(host, operation),
                     0,
                     {{6, 0, "", "Could not resolve host: " + host}}});
    }
    RunAtOnce(all);
  });
}

// The kernel asks three times for the host's hardware address, a second apart.
TEST(LinkFaultTest, NobodyAtTheAddress) {
  InNetwork(true, [] {
    std::vector<Encounter> all;
    for (const Operation& operation : Operations()) {
      all.push_back(
          {"nobody",
           operation,
           UrlTo("10.203.0.77", operation),
           ConnectLimit(operation),
           {{7, 0, "", "Failed to connect to 10.203.0.77( port |:).*"}, {28, 0, "", kAnyText}}});
    }
    RunAtOnce(all);
  });
}

// A name server that never answers. libcurl says at its limit that the look-up took too long, but
// waits for the resolver's thread before it returns: `resolverLimit` seconds with these `options`
// of resolv.conf(5).
void WithASilentNameServer(const std::string& options, double resolverLimit) {
  InNetwork(true, [&] {
    const NetNamespaceOptions pair;
    const TempDir directory;
    const std::string configuration =
        directory.Write("resolv.conf", "nameserver " + pair.peerAddress + "\n" + options);
    // A host name with a domain would make the resolver ask once more.
    ASSERT_EQ(unshare(CLONE_NEWNS | CLONE_NEWUTS), 0);
    ASSERT_EQ(sethostname("lum", 3), 0);
    ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    ASSERT_EQ(mount(configuration.c_str(), "/etc/resolv.conf", nullptr, MS_BIND, nullptr), 0);
    int silent = -1;
    InPeerNamespace([&] {
      SocketAddress port(pair.peerAddress, 53);
      silent = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
      ASSERT_EQ(bind(silent, port.Get(), port.length), 0);
    });
    std::vector<Encounter> all;
    for (const Operation& operation : Operations()) {
      Encounter met{"silent name server", operation, UrlTo("nowhere.example", operation),
                    resolverLimit,        {},        ConnectLimit(operation)};
      if (ConnectLimit(operation) <= resolverLimit) {
        met.endings.push_back({28, 0, "",
                               "Resolving timed out after [0-9]+ milliseconds|"  // or, by a hair,
                               "Could not resolve host: nowhere.example"});
      }
      if (ConnectLimit(operation) >= resolverLimit) {
        met.endings.push_back({6, 0, "", "Could not resolve host: nowhere.example"});
      }
      all.push_back(met);
    }
    RunAtOnce(all);
    close(silent);
  });
}

TEST(LinkFaultTest, ASilentNameServer) {
  WithASilentNameServer("", 10);
}

TEST(LinkFaultTest, ASilentNameServerThatIsGivenOneSecond) {
  WithASilentNameServer("options timeout:1 attempts:1\n", 1);
}

TEST(LinkFaultTest, ThirtyPercentOfThePacketsAreLost) {
  InNetwork(true, [] {
    Impairment impairment;
    impairment.lossPercent = 30;
    ImpairedLink link(impairment);
    const std::size_t before = OpenDescriptors();
    auto servers = std::make_unique<FarServers>(ImpairedLink::kPeerAddress);
    std::vector<Encounter> all;
    for (const Operation& operation : Operations()) {
      Encounter met{"loss",          operation,           servers->UrlFor(operation),
                    operation.limit, TimedOut(operation), ConnectLimit(operation)};
      met.endings.insert(met.endings.begin(), Good(operation));
      all.push_back(met);
    }
    RunAcross(all, std::move(servers), before);
    EXPECT_GT(link.Lost(), 0u);
  });
}

// To the server only: a connection takes two seconds, and so does each answer.
TEST(LinkFaultTest, EachPacketTakesTwoSeconds) {
  InNetwork(true, [] {
    Impairment impairment;
    impairment.delay = std::chrono::seconds(2);
    ImpairedLink link(impairment);
    const FarServers servers(ImpairedLink::kPeerAddress);
    std::vector<Encounter> all;
    for (const Operation& operation : Operations()) {
      Encounter met{"delay", operation, servers.UrlFor(operation), operation.limit, {}};
      const bool apollo = operation.NeedsTls();  // has a handshake besides
      if (operation.limit > 4 && !apollo) {
        met.endings.push_back(Good(operation));
      }
      if (operation.limit < 10) {
        const std::vector<Ending> timedOut = TimedOut(operation);
        met.endings.insert(met.endings.end(), timedOut.begin(), timedOut.end());
      }
      if (operation.limit == 4) {
        met.endings.push_back(Good(operation));  // by a hair
      }
      all.push_back(met);
    }
    RunAtOnce(all);
  });
}

TEST(LinkFaultTest, PacketsOfAtMost576Bytes) {
  InNetwork(true, [] {
    const NetNamespaceOptions pair;
    ASSERT_TRUE(RunCommand({"ip", "link", "set", pair.name, "mtu", "576"}).Succeeded());
    InPeerNamespace([&pair] {
      ASSERT_TRUE(RunCommand({"ip", "link", "set", pair.peerName, "mtu", "576"}).Succeeded());
    });
    const std::string reply = "\"" + std::string(200000, 'x') + "\"";
    const std::string content = GeneratedBytes(0, 300000);
    const FarServers servers(pair.peerAddress, reply);
    std::vector<Encounter> all;
    std::size_t files = 0;
    for (const Operation& operation : Operations()) {
      all.push_back({"small packets",
                     operation,
                     servers.UrlFor(operation),
                     operation.limit,
                     {Good(operation, reply)},
                     -1,
                     content});
      files += operation.Uploads() ? 1 : 0;
    }
    RunAtOnce(all);
    std::size_t whole = 0;
    for (const WireRequest& request : servers.plain->Requests()) {
      whole += request.body == content ? 1 : 0;
    }
    EXPECT_EQ(whole, files - 3) << "all but the archives";
  });
}

// Somewhere on the way large packets vanish, and nobody says so: what fits goes through, an answer
// that does not never comes.
TEST(LinkFaultTest, PacketsAbove576BytesVanish) {
  InNetwork(true, [] {
    Impairment impairment;
    impairment.largestPacket = 576;
    ImpairedLink link(impairment);
    const std::size_t before = OpenDescriptors();
    auto servers = std::make_unique<FarServers>(ImpairedLink::kPeerAddress,
                                                "\"" + std::string(200000, 'x') + "\"");
    std::vector<Encounter> all;
    for (const Operation& operation : OperationsWhere(
             [](const Operation& each) { return !each.Is60Seconds() && !each.Uploads(); })) {
      all.push_back({"black hole for large packets",
                     operation,
                     servers->UrlFor(operation),
                     operation.limit,
                     {{28, 0, "", kAnyText}}});
    }
    RunAcross(all, std::move(servers), before);
    EXPECT_GT(link.Lost(), 0u);
  });
}

}  // namespace
}  // namespace lumtest
