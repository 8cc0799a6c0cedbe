// Networks of their own.

#include "support/NetNamespace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string>

#include "wire/WireClient.h"
#include "wire/WireServer.h"

namespace lumtest {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// Where namespaces are not allowed there is only the refusal to look at.
#define ASSERT_ALLOWED(result)                \
  if (!(result).allowed) {                    \
    ASSERT_NE((result).reason, "");           \
    std::cout << (result).Describe() << '\n'; \
    return;                                   \
  }

TEST(NetNamespace, ReturnsStatusAndOutput) {
  const NetNamespaceResult result = RunInNetNamespace([] {
    std::printf("out");
    std::cerr << "err";
    return 7;
  });
  ASSERT_ALLOWED(result);
  EXPECT_EQ(result.exitStatus, 7);
  EXPECT_EQ(result.out, "out");
  EXPECT_EQ(result.err, "err");
  EXPECT_FALSE(result.Succeeded());
  EXPECT_THAT(result.Describe(), HasSubstr("exit status 7"));
}

TEST(NetNamespace, HasNothingButALoopback) {
  const NetNamespaceResult result = RunInNetNamespace([] {
    WireServer server;
    WireClient client("127.0.0.1", server.Port());
    client.Send("GET / HTTP/1.1\r\n\r\n");
    EXPECT_THAT(client.ReadUntil("\r\n"), StartsWith("HTTP/1.1 501"));
    EXPECT_EQ(if_nametoindex("lo"), 1u);
    EXPECT_EQ(if_nametoindex("lum0"), 0u);
    // An address that no loopback has cannot be reached from here.
    EXPECT_THROW(WireClient("192.0.2.1", 80), std::runtime_error);
    return ::testing::Test::HasFailure() ? 1 : 0;
  });
  ASSERT_ALLOWED(result);
  EXPECT_TRUE(result.Succeeded()) << result.Describe();
}

TEST(NetNamespace, ComesBackFromThePeer) {
  NetNamespaceOptions options;
  options.veth = true;
  const NetNamespaceResult result = RunInNetNamespace(
      [&options] {
        EXPECT_THROW(InPeerNamespace([] { throw std::runtime_error("x"); }), std::runtime_error);
        return if_nametoindex(options.name.c_str()) != 0 ? 0 : 1;
      },
      options);
  ASSERT_ALLOWED(result);
  EXPECT_TRUE(result.Succeeded()) << result.Describe();
}

TEST(NetNamespace, TellsHowTheChildFailed) {
  NetNamespaceResult result = RunInNetNamespace([]() -> int { throw std::runtime_error("oops"); });
  ASSERT_ALLOWED(result);
  EXPECT_EQ(result.exitStatus, 125);
  EXPECT_THAT(result.err, HasSubstr("oops"));

  result = RunInNetNamespace([] {
    std::signal(SIGTERM, SIG_DFL);
    return std::raise(SIGTERM);
  });
  EXPECT_EQ(result.signal, SIGTERM);
  EXPECT_FALSE(result.Succeeded());

  NetNamespaceOptions options;
  options.timeout = std::chrono::milliseconds(100);
  result = RunInNetNamespace(
      [] {
        while (true) {
          pause();
        }
        return 0;
      },
      options);
  EXPECT_TRUE(result.timedOut);
  EXPECT_EQ(result.signal, SIGKILL);
}

TEST(NetNamespace, SaysWhatCannotBeSetUp) {
  if (!RunInNetNamespace([] { return 0; }).allowed) {
    return;
  }
  NetNamespaceOptions options;
  options.veth = true;
  options.mac = "nonsense";
  EXPECT_THROW(RunInNetNamespace([] { return 0; }, options), std::runtime_error);
  EXPECT_THROW(InPeerNamespace([] {}), std::runtime_error);
}

}  // namespace
}  // namespace lumtest
