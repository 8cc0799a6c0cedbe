// LumNet over lists of interfaces that the tests write themselves: who wins when a MAC is shared,
// which address is chosen, and what the system can leave out of its list.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "LumNet.h"

namespace {

// What the wrapped getifaddrs hands out, in order.
class InterfaceTable {
 public:
  static InterfaceTable* s_current;

  InterfaceTable() { s_current = this; }
  ~InterfaceTable() { s_current = nullptr; }
  InterfaceTable(const InterfaceTable&) = delete;
  InterfaceTable& operator=(const InterfaceTable&) = delete;

  InterfaceTable& Link(const char* name, unsigned int flags, std::vector<unsigned char> mac) {
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_halen = static_cast<unsigned char>(mac.size());
    std::copy(mac.begin(), mac.end(), address.sll_addr);
    return Add(name, flags, &address, sizeof address);
  }

  InterfaceTable& IPv4(const char* name, const char* text) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    EXPECT_EQ(inet_pton(AF_INET, text, &address.sin_addr), 1);
    return Add(name, IFF_UP, &address, sizeof address);
  }

  InterfaceTable& IPv6(const char* name, const char* text) {
    sockaddr_in6 address = {};
    address.sin6_family = AF_INET6;
    address.sin6_scope_id = 7;
    EXPECT_EQ(inet_pton(AF_INET6, text, &address.sin6_addr), 1);
    return Add(name, IFF_UP, &address, sizeof address);
  }

  InterfaceTable& NoAddress(const char* name) { return Add(name, IFF_UP, nullptr, 0); }

  void Fail(int error) { m_error = error; }

  int Get(ifaddrs** list) {
    ++m_calls;
    if (m_error != 0) {
      errno = m_error;
      *list = reinterpret_cast<ifaddrs*>(0x1);  // left undefined by a failure
      return -1;
    }
    for (std::size_t i = 0; i + 1 < m_entries.size(); ++i) {
      m_entries[i].entry.ifa_next = &m_entries[i + 1].entry;
    }
    *list = m_entries.empty() ? nullptr : &m_entries[0].entry;
    ++m_open;
    return 0;
  }

  void Free(ifaddrs* list) {
    EXPECT_EQ(list, &m_entries[0].entry);
    --m_open;
  }

  int Calls() const { return m_calls; }
  int Open() const { return m_open; }

 private:
  struct Entry {
    std::string name;
    sockaddr_storage address = {};
    ifaddrs entry = {};
  };

  InterfaceTable& Add(const char* name, unsigned int flags, const void* address,
                      std::size_t length) {
    m_entries.emplace_back();
    Entry& added = m_entries.back();
    added.name = name;
    added.entry.ifa_name = &added.name[0];
    added.entry.ifa_flags = flags;
    if (address != nullptr) {
      std::memcpy(&added.address, address, length);
      added.entry.ifa_addr = reinterpret_cast<sockaddr*>(&added.address);
    }
    return *this;
  }

  std::deque<Entry> m_entries;  // never moves an entry
  int m_error = 0;
  int m_calls = 0;
  int m_open = 0;
};

InterfaceTable* InterfaceTable::s_current = nullptr;

const std::vector<unsigned char> kMac = {0x02, 0xab, 0xcd, 0xef, 0x00, 0x01};
const std::vector<unsigned char> kOtherMac = {0x02, 0xab, 0xcd, 0xef, 0x00, 0x02};
const char* const kMacText = "02:ab:cd:ef:00:01";

struct Found {
  int result;
  std::string ipv4;
  std::string ipv6;
};

bool operator==(const Found& a, const Found& b) {
  return a.result == b.result && a.ipv4 == b.ipv4 && a.ipv6 == b.ipv6;
}

std::ostream& operator<<(std::ostream& out, const Found& found) {
  return out << found.result << " '" << found.ipv4 << "' '" << found.ipv6 << "'";
}

Found Addresses(const std::string& mac) {
  Found found = {99, "stale", "stale"};
  found.result = LumNet::GetLocalIpAddress(mac, found.ipv4, found.ipv6);
  return found;
}

const Found kNothing = {-1, "", ""};

TEST(LumNetInterfaces, OneInterfaceWithBothFamilies) {
  InterfaceTable table;
  table.Link("lo", IFF_UP, {0, 0, 0, 0, 0, 0})
      .Link("eth0", IFF_UP, kMac)
      .Link("eth1", IFF_UP, kOtherMac)
      .IPv4("lo", "127.0.0.1")
      .IPv4("eth0", "10.0.0.5")
      .IPv4("eth0", "10.0.0.6")
      .IPv4("eth1", "10.0.1.5")
      .IPv6("lo", "::1")
      .IPv6("eth0", "2001:db8::5")
      .IPv6("eth0", "2001:db8::6")
      .IPv6("eth1", "2001:db8:1::5");
  EXPECT_EQ(LumNet::GetInterfaceName(kMacText), "eth0");
  EXPECT_EQ(Addresses(kMacText), (Found{0, "10.0.0.5", "2001:db8::5"}));
  EXPECT_EQ(LumNet::GetInterfaceName("02:ab:cd:ef:00:02"), "eth1");
  EXPECT_EQ(Addresses("02:ab:cd:ef:00:02"), (Found{0, "10.0.1.5", "2001:db8:1::5"}));
  EXPECT_EQ(table.Calls(), 4);
  EXPECT_EQ(table.Open(), 0);
}

TEST(LumNetInterfaces, MacFormsThatNameTheSame) {
  InterfaceTable table;
  table.Link("eth0", IFF_UP, kMac);
  for (const char* mac : {"02:ab:cd:ef:00:01", "02:AB:CD:EF:00:01", "02:aB:Cd:eF:00:01",
                          "02-ab-cd-ef-00-01", "02-AB-CD-EF-00-01"}) {
    EXPECT_EQ(LumNet::GetInterfaceName(mac), "eth0") << mac;
  }
}

TEST(LumNetInterfaces, HexDigitsAloneAreDigits) {
  InterfaceTable table;  // so that every other reading of the last pair finds an interface
  std::vector<std::string> names;
  for (int byte = 0; byte < 256; ++byte) {
    names.push_back("eth" + std::to_string(byte));
    table.Link(names.back().c_str(), IFF_UP,
               {0x02, 0xab, 0xcd, 0xef, 0x00, static_cast<unsigned char>(byte)});
  }
  const std::string digits = "0123456789abcdefABCDEF";
  for (int byte = 0; byte < 256; ++byte) {
    const auto digit = static_cast<char>(byte);
    const std::size_t place = digits.find(digit);
    const std::size_t value = place < 16 ? place : place - 6;
    const bool isDigit = place != std::string::npos;
    EXPECT_EQ(LumNet::GetInterfaceName(std::string("02:ab:cd:ef:00:0") + digit),
              isDigit ? names[value] : "")
        << byte;
    EXPECT_EQ(LumNet::GetInterfaceName(std::string("02:ab:cd:ef:00:") + digit + "1"),
              isDigit ? names[16 * value + 1] : "")
        << byte;
  }
}

TEST(LumNetInterfaces, TextsThatAreNoMac) {
  InterfaceTable table;
  table
      .Link("lo", IFF_UP, {0, 0, 0, 0, 0, 0})  // what a text that is not read at all leaves
      .Link("eth0", IFF_UP, kMac)
      .Link("eth1", IFF_UP, {0x02, 0xab, 0xcd, 0xef, 0x00, 0x00})  // or one read in part
      .IPv4("lo", "127.0.0.1")
      .IPv4("eth0", "10.0.0.5")
      .IPv4("eth1", "10.0.0.6");
  const std::string good = kMacText;
  std::vector<std::string> texts = {
      // Not six pairs.
      "", " ", "eth0", "02abcdef0001", "02:ab:cd:ef:00", "02:ab:cd:ef:00:", "02:ab:cd:ef:00:1",
      "2:ab:cd:ef:00:01", "02:ab:cd:ef:00:011", "02:ab:cd:ef:00:01:00",
      // Other separators, or more than one.
      "02:ab-cd:ef-00:01", "02:ab:cd:ef:00-01", "02.ab.cd.ef.00.01", "02 ab cd ef 00 01",
      "02ab.cdef.0001",
      // Not digits alone.
      "0x:ab:cd:ef:00:01", "02:ab:cd:ef:00:0g", "+2:ab:cd:ef:00:01", " 2:ab:cd:ef:00:01",
      good + " ", " " + good, good + '\n', good + '\0', std::string(17, '\0')};
  for (std::size_t i = 0; i < good.size(); ++i) {  // each byte of a good one spoilt
    texts.push_back(good);
    texts.back()[i] = '\xe9';
  }
  for (const std::string& text : texts) {
    EXPECT_EQ(LumNet::GetInterfaceName(text), "") << text;
    EXPECT_EQ(Addresses(text), kNothing) << text;
  }
  EXPECT_EQ(table.Open(), 0);
}

TEST(LumNetInterfaces, AllZeroMacNamesNoInterface) {
  InterfaceTable table;
  table.Link("lo", IFF_UP, {0, 0, 0, 0, 0, 0}).IPv4("lo", "127.0.0.1");
  EXPECT_EQ(LumNet::GetInterfaceName("00:00:00:00:00:00"), "");
  EXPECT_EQ(Addresses("00:00:00:00:00:00"), kNothing);
}

TEST(LumNetInterfaces, SharedMacGoesToTheOneWithAnAddress) {
  InterfaceTable table;  // a bridge over its port
  table.Link("eth0", IFF_UP, kMac)
      .Link("br0", IFF_UP, kMac)
      .IPv6("eth0", "fe80::1")
      .IPv4("br0", "10.0.0.5")
      .IPv6("br0", "fe80::2");
  EXPECT_EQ(LumNet::GetInterfaceName(kMacText), "br0");
  EXPECT_EQ(Addresses(kMacText), (Found{0, "10.0.0.5", "fe80::2"}));
}

TEST(LumNetInterfaces, IPv6BeyondTheLinkCountsAsAnAddressToo) {
  InterfaceTable table;
  table.Link("eth0", IFF_UP, kMac)
      .Link("br0", IFF_UP, kMac)
      .IPv6("eth0", "fe80::1")
      .IPv6("br0", "2001:db8::2");
  EXPECT_EQ(LumNet::GetInterfaceName(kMacText), "br0");
}

TEST(LumNetInterfaces, SharedMacGoesToTheOneThatIsUp) {
  InterfaceTable table;
  table.Link("eth0", IFF_BROADCAST | IFF_MULTICAST, kMac)
      .Link("bond0", IFF_UP, kMac)
      .IPv4("eth0", "10.0.0.5");
  EXPECT_EQ(LumNet::GetInterfaceName(kMacText), "bond0");
  EXPECT_EQ(Addresses(kMacText), kNothing);
}

TEST(LumNetInterfaces, SharedMacAmongEqualsGoesToTheFirst) {
  InterfaceTable table;  // a VLAN over its device, both with addresses
  table.Link("eth0", IFF_UP, kMac)
      .Link("eth0.10", IFF_UP, kMac)
      .IPv4("eth0.10", "10.0.10.5")
      .IPv4("eth0", "10.0.0.5");
  EXPECT_EQ(LumNet::GetInterfaceName(kMacText), "eth0");
  EXPECT_EQ(Addresses(kMacText), (Found{0, "10.0.0.5", ""}));
}

TEST(LumNetInterfaces, InterfaceThatIsDownIsFoundWhenThereIsNoOther) {
  InterfaceTable table;
  table.Link("eth0", 0, kMac).Link("eth1", 0, kMac);
  EXPECT_EQ(LumNet::GetInterfaceName(kMacText), "eth0");
}

TEST(LumNetInterfaces, LabelledAddressBelongsToItsInterface) {
  InterfaceTable table;
  table.Link("eth0", IFF_UP, kMac)
      .Link("eth01", IFF_UP, kOtherMac)
      .IPv4("eth01", "10.0.1.5")
      .IPv4("eth01:1", "10.0.1.6")
      .IPv4("eth0~1", "10.0.1.7")  // a colon alone begins a label
      .IPv4("eth0:1", "10.0.0.6");
  EXPECT_EQ(Addresses(kMacText), (Found{0, "10.0.0.6", ""}));
  EXPECT_EQ(LumNet::GetInterfaceName(kMacText), "eth0");
}

TEST(LumNetInterfaces, AddressBeyondTheLinkIsPreferred) {
  InterfaceTable table;
  table.Link("eth0", IFF_UP, kMac)
      .IPv6("eth0", "fe80::1")
      .IPv6("eth0", "2001:db8::1")
      .IPv6("eth0", "fe80::2")
      .IPv6("eth0", "2001:db8::2");
  EXPECT_EQ(Addresses(kMacText), (Found{0, "", "2001:db8::1"}));
}

TEST(LumNetInterfaces, LinkLocalAloneIsGivenWithoutScope) {
  InterfaceTable table;
  table.Link("eth0", IFF_UP, kMac).IPv6("eth0", "fe80::1").IPv6("eth0", "fe80::2");
  const Found found = Addresses(kMacText);
  EXPECT_EQ(found, (Found{0, "", "fe80::1"}));
  EXPECT_TRUE(LumNet::IsIPv6Address(found.ipv6));
}

TEST(LumNetInterfaces, LongestAddressTextIsWhole) {
  InterfaceTable table;
  table.Link("eth0", IFF_UP, kMac)
      .IPv4("eth0", "255.255.255.255")
      .IPv6("eth0", "2001:1db8:1111:2222:3333:4444:5555:6666");
  EXPECT_EQ(Addresses(kMacText),
            (Found{0, "255.255.255.255", "2001:1db8:1111:2222:3333:4444:5555:6666"}));
}

TEST(LumNetInterfaces, InterfaceWithoutAddressesFails) {
  InterfaceTable table;
  table.Link("eth0", IFF_UP, kMac).Link("eth1", IFF_UP, kOtherMac).IPv4("eth1", "10.0.0.5");
  EXPECT_EQ(Addresses(kMacText), kNothing);
  EXPECT_EQ(LumNet::GetInterfaceName(kMacText), "eth0");
}

TEST(LumNetInterfaces, EntriesWithoutAddressOrWithOtherHardwareArePassedOver) {
  InterfaceTable table;
  table.NoAddress("ppp0")
      .Link("gre0", IFF_UP, {0x02, 0xab, 0xcd, 0xef})
      .Link("ib0", IFF_UP, {0x02, 0xab, 0xcd, 0xef, 0x00, 0x01, 0x00, 0x00})
      .Link("none", IFF_UP, {})
      .NoAddress("eth0")
      .Link("eth0", IFF_UP, kMac)
      .IPv4("eth0", "10.0.0.5");
  EXPECT_EQ(LumNet::GetInterfaceName(kMacText), "eth0");
  EXPECT_EQ(Addresses(kMacText), (Found{0, "10.0.0.5", ""}));
}

TEST(LumNetInterfaces, HardwareAddressOfAnotherLengthIsNoMac) {
  for (const std::size_t length : {0U, 5U, 7U, 8U}) {
    InterfaceTable table;
    std::vector<unsigned char> address = {0x02, 0xab, 0xcd, 0xef, 0x01, 0x00, 0x00, 0x00};
    address.resize(length);
    table.Link("ib0", IFF_UP, address).IPv4("ib0", "10.0.0.5");
    EXPECT_EQ(LumNet::GetInterfaceName("02:ab:cd:ef:01:00"), "") << length;
    EXPECT_EQ(Addresses("02:ab:cd:ef:01:00"), kNothing) << length;
  }
}

TEST(LumNetInterfaces, IPv6AddressIsNoMacWhateverItsBytes) {
  InterfaceTable table;
  // Read as a hardware address: six bytes, and these the MAC's.
  table.IPv6("eth1", "2001:d06:2ab:cdef:1::").Link("eth0", IFF_UP, kMac);
  EXPECT_EQ(LumNet::GetInterfaceName(kMacText), "eth0");
}

TEST(LumNetInterfaces, UnknownMacAndEmptyList) {
  InterfaceTable table;
  EXPECT_EQ(LumNet::GetInterfaceName(kMacText), "");
  EXPECT_EQ(Addresses(kMacText), kNothing);
  table.Link("eth0", IFF_UP, kOtherMac).IPv4("eth0", "10.0.0.5");
  EXPECT_EQ(LumNet::GetInterfaceName(kMacText), "");
  EXPECT_EQ(Addresses(kMacText), kNothing);
}

TEST(LumNetInterfaces, SystemThatDoesNotTellItsInterfaces) {
  InterfaceTable table;
  table.Link("eth0", IFF_UP, kMac).IPv4("eth0", "10.0.0.5");
  table.Fail(ENOMEM);
  EXPECT_EQ(LumNet::GetInterfaceName(kMacText), "");
  EXPECT_EQ(Addresses(kMacText), kNothing);
  EXPECT_EQ(table.Calls(), 2);
}

TEST(LumNetInterfaces, OutputsMayBeTheTextThatNamesTheMac) {
  InterfaceTable table;
  table.Link("eth0", IFF_UP, kMac).IPv4("eth0", "10.0.0.5").IPv6("eth0", "2001:db8::5");
  std::string text = kMacText;
  std::string ipv6;
  EXPECT_EQ(LumNet::GetLocalIpAddress(text, text, ipv6), 0);
  EXPECT_EQ(text, "10.0.0.5");
  EXPECT_EQ(ipv6, "2001:db8::5");
}

}  // namespace

extern "C" int __wrap_getifaddrs(ifaddrs** list);
extern "C" void __wrap_freeifaddrs(ifaddrs* list);

extern "C" int __wrap_getifaddrs(ifaddrs** list) {
  return InterfaceTable::s_current->Get(list);
}

extern "C" void __wrap_freeifaddrs(ifaddrs* list) {
  InterfaceTable::s_current->Free(list);
}
