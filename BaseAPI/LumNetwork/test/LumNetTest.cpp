// LumNet as it ships: address texts, the machine's own interfaces as the kernel lists them under
// /sys, and a network namespace with interfaces of the test's making.

#include "LumNet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/NetNamespace.h"
#include "support/Process.h"

namespace {

using lumtest::RunCommand;
using ::testing::Contains;

// ---- Texts ----

void ExpectFamily(const std::string& text, bool ipv4, bool ipv6) {
  EXPECT_EQ(LumNet::IsIPv4Address(text), ipv4) << text;
  EXPECT_EQ(LumNet::IsIPv6Address(text), ipv6) << text;
}

TEST(LumNetText, IsAnAddressOfOneFamilyOrNone) {
  for (const char* text : {"0.0.0.0", "127.0.0.1", "255.255.255.255", "10.20.30.40"}) {
    ExpectFamily(text, true, false);
  }
  for (const char* text :
       {"::", "::1", "fe80::1", "2001:db8:1:2:3:4:5:6", "2001:DB8::A", "::ffff:192.0.2.1",
        "64:ff9b::192.0.2.33", "1::", "1:2:3:4:5:6:7::", "0001:0002::"}) {
    ExpectFamily(text, false, true);
  }
  const std::string kNeither[] = {
      // Not four numbers.
      "", " ", "1", "1.2.3", "1.2.3.", "1.2.3.4.", ".1.2.3.4", "1.2.3.4.5", "1..2.3", "1,2,3,4",
      "localhost",
      // Not from 0 to 255 in decimal digits without leading zeros.
      "256.1.1.1", "1.2.3.256", "01.2.3.4", "1.2.3.04", "1.2.3.0x4", "-1.2.3.4", "+1.2.3.4",
      "99999999999.1.1.1", "\xd9\xa1.2.3.4",
      // Not eight groups of up to four hexadecimal digits.
      ":", ":::", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "1::2::3", "12345::", "g::", "::192.0.2",
      "::192.0.2.256", "1:2:3:4:5:6:7:192.0.2.1",
      // Something around them, or a zero byte in the place of an end.
      " 1.2.3.4", "1.2.3.4 ", "1.2.3.4\n", "1.2.3.4:80", "1.2.3.4/24", "fe80::1%eth0", "fe80::1%2",
      "[::1]", "::1/128", " ::1", "::1 ", "::1\n", std::string("1.2.3.4\0", 8),
      std::string("1.2.3.4\0x", 9), std::string("::1\0", 4),
      // Very long ones.
      std::string(1 << 20, '1'), std::string(1 << 20, ':')};
  for (const std::string& text : kNeither) {
    ExpectFamily(text, false, false);
  }
}

// ---- The machine's own interfaces ----

// The interfaces that have a MAC of their own, by that MAC, as /sys lists them.
std::map<std::string, std::vector<std::string>> MachinesInterfaces() {
  std::map<std::string, std::vector<std::string>> byMac;
  for (const auto& entry : std::filesystem::directory_iterator("/sys/class/net")) {
    std::string mac;
    std::ifstream(entry.path() / "address") >> mac;
    if (mac.size() == 17 && mac != "00:00:00:00:00:00") {
      byMac[mac].push_back(entry.path().filename());
    }
  }
  return byMac;
}

TEST(LumNetMachine, EveryMacLeadsToAnInterfaceThatHasIt) {
  for (const auto& [mac, names] : MachinesInterfaces()) {
    const std::string name = LumNet::GetInterfaceName(mac);
    EXPECT_THAT(names, Contains(name)) << mac;

    std::string ipv4 = "stale";
    std::string ipv6 = "stale";
    const int result = LumNet::GetLocalIpAddress(mac, ipv4, ipv6);
    const std::string shown = RunCommand({"ip", "-o", "addr", "show", "dev", name}).out;
    EXPECT_EQ(result, shown.find(" inet") == std::string::npos ? -1 : 0) << shown;
    EXPECT_EQ(ipv4.empty(), shown.find(" inet ") == std::string::npos) << shown;
    EXPECT_EQ(ipv6.empty(), shown.find(" inet6 ") == std::string::npos) << shown;
    EXPECT_NE(shown.find(ipv4.empty() ? "" : " inet " + ipv4), std::string::npos) << shown;
    EXPECT_NE(shown.find(ipv6.empty() ? "" : " inet6 " + ipv6), std::string::npos) << shown;
  }
}

// ---- A network namespace of the test's own ----

// "name ipv4 ipv6" of the interface that has `mac`, each "-" when empty.
std::string Describe(const std::string& mac) {
  std::string ipv4;
  std::string ipv6;
  const std::string name = LumNet::GetInterfaceName(mac);
  const int result = LumNet::GetLocalIpAddress(mac, ipv4, ipv6);
  std::ostringstream text;
  for (const std::string& word : {name, ipv4, ipv6}) {
    text << (word.empty() ? "-" : word) << ' ';
  }
  text << result;
  return text.str();
}

// Two veth pairs; one end is on a bridge that has taken its MAC, as bridges do.
const char* const kNetwork =
    "set -e;"
    "ip link add va address 02:00:00:00:0a:01 type veth peer name vb address 02:00:00:00:0b:01;"
    "ip link set va addrgenmode none; ip link set vb addrgenmode none;"
    "ip link set va up; ip link set vb up;"
    "ip addr add 10.1.0.1/24 dev va label va:first; ip addr add 10.1.1.1/24 dev va;"
    "ip addr add fe80::a/64 dev va nodad; ip addr add fd00::a/64 dev va nodad;"
    "ip addr add fe80::b/64 dev vb nodad;"
    "ip link add vc address 02:00:00:00:0c:01 type veth peer name vd address 02:00:00:00:0d:01;"
    "ip link set vc addrgenmode none; ip link set vc up;"
    "ip link add br0 address 02:00:00:00:0c:01 type bridge; ip link set vc master br0;"
    "ip link set br0 addrgenmode none; ip link set br0 up; ip addr add 10.2.0.1/24 dev br0;";

TEST(LumNetNamespace, InterfacesOfAKnownNetwork) {
  const lumtest::NetNamespaceResult result = lumtest::RunInNetNamespace([] {
    const lumtest::ProcessResult setUp = RunCommand({"sh", "-c", kNetwork});
    EXPECT_TRUE(setUp.Succeeded()) << setUp.Describe();
    EXPECT_EQ(Describe("02:00:00:00:0a:01"), "va 10.1.0.1 fd00::a 0");  // a label, a link-local
    EXPECT_EQ(Describe("02-00-00-00-0B-01"), "vb - fe80::b 0");         // link-local alone
    EXPECT_EQ(Describe("02:00:00:00:0c:01"), "br0 10.2.0.1 - 0");       // shared with its port
    EXPECT_EQ(Describe("02:00:00:00:0d:01"), "vd - - -1");              // down, no address
    EXPECT_EQ(Describe("00:00:00:00:00:00"), "- - - -1");               // the loopback's zeros
    EXPECT_EQ(Describe("02:00:00:00:0e:01"), "- - - -1");               // nobody's
    return ::testing::Test::HasFailure() ? 1 : 0;
  });
  if (result.allowed) {
    EXPECT_TRUE(result.Succeeded()) << result.Describe();
    return;
  }
  std::cout << "[   NOTE   ] no network namespaces here (" << result.reason
            << "): the machine's own network is asked for the same addresses, unknown to it\n";
  for (const char* mac : {"02:00:00:00:0a:01", "02:00:00:00:0b:01", "02:00:00:00:0c:01"}) {
    ASSERT_EQ(MachinesInterfaces().count(mac), 0U);
    EXPECT_EQ(Describe(mac), "- - - -1");
  }
}

}  // namespace
