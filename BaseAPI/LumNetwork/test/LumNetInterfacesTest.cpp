// LumNet over lists of interfaces that the tests write themselves: who wins when a MAC is shared,
// which address is chosen, and what the system can leave out of its list.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>

#include <cerrno>
#include <cstdio>
#include <deque>
#include <sstream>
#include <string>
#include <vector>

#include "LumNet.h"

namespace {

// What the wrapped getifaddrs hands out, in order: entries such as "eth0 up 02:ab:cd:ef:00:01",
// "eth1 down 02:ab:cd:ef:00:02", "eth0 10.0.0.5", "eth0 fe80::1", and "ppp0", without an address.
class InterfaceTable {
 public:
  static InterfaceTable* s_current;

  explicit InterfaceTable(const std::vector<std::string>& entries) {
    for (const std::string& entry : entries) {
      Add(entry);
    }
    s_current = this;
  }
  ~InterfaceTable() {
    EXPECT_EQ(m_open, 0);
    s_current = nullptr;
  }
  InterfaceTable(const InterfaceTable&) = delete;
  InterfaceTable& operator=(const InterfaceTable&) = delete;

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
    m_open += m_entries.empty() ? 0 : 1;
    return 0;
  }

  void Free(ifaddrs* list) {
    EXPECT_EQ(list, &m_entries[0].entry);
    --m_open;
  }

  int Calls() const { return m_calls; }

 private:
  struct Entry {
    std::string name;
    union {
      sockaddr any;
      sockaddr_in ipv4;
      sockaddr_in6 ipv6;
      sockaddr_ll link;
    } address = {};
    ifaddrs entry = {};
  };

  void Add(const std::string& text) {
    m_entries.emplace_back();
    auto& [name, address, entry] = m_entries.back();
    std::string word;
    std::string mac;
    std::istringstream(text) >> name >> word >> mac;
    entry.ifa_name = &name[0];
    entry.ifa_flags = word == "down" ? IFF_BROADCAST | IFF_MULTICAST : IFF_UP;
    entry.ifa_addr = word.empty() ? nullptr : &address.any;
    if (word == "up" || word == "down") {
      address.link.sll_family = AF_PACKET;
      address.link.sll_halen = static_cast<unsigned char>((mac.size() + 1) / 3);
      for (std::size_t i = 0; i < address.link.sll_halen; ++i) {
        const int byte = std::stoi(mac.substr(3 * i, 2), nullptr, 16);
        address.link.sll_addr[i] = static_cast<unsigned char>(byte);
      }
    } else if (inet_pton(AF_INET, word.c_str(), &address.ipv4.sin_addr) == 1) {
      address.ipv4.sin_family = AF_INET;
    } else if (!word.empty()) {
      EXPECT_EQ(inet_pton(AF_INET6, word.c_str(), &address.ipv6.sin6_addr), 1) << word;
      address.ipv6.sin6_family = AF_INET6;
      address.ipv6.sin6_scope_id = 7;
    }
  }

  std::deque<Entry> m_entries;  // never moves an entry
  int m_error = 0;
  int m_calls = 0;
  int m_open = 0;
};

InterfaceTable* InterfaceTable::s_current = nullptr;

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

TEST(LumNetInterfaces, EachMacHasItsOwnNameAndAddresses) {
  InterfaceTable table({"lo up 00:00:00:00:00:00", "eth0 up 02:ab:cd:ef:00:01",
                        "eth1 up 02:ab:cd:ef:00:02", "lo 127.0.0.1", "eth0 10.0.0.5",
                        "eth0 10.0.0.6", "eth1 10.0.1.5", "lo ::1", "eth0 2001:db8::5",
                        "eth0 2001:db8::6", "eth1 2001:db8:1::5"});
  for (const char* mac : {"02:ab:cd:ef:00:01", "02:AB:CD:EF:00:01", "02:aB:Cd:eF:00:01",
                          "02-ab-cd-ef-00-01", "02-AB-CD-EF-00-01"}) {
    EXPECT_EQ(LumNet::GetInterfaceName(mac), "eth0") << mac;
    EXPECT_EQ(Addresses(mac), (Found{0, "10.0.0.5", "2001:db8::5"})) << mac;
  }
  EXPECT_EQ(LumNet::GetInterfaceName("02:ab:cd:ef:00:02"), "eth1");
  EXPECT_EQ(Addresses("02:ab:cd:ef:00:02"), (Found{0, "10.0.1.5", "2001:db8:1::5"}));
  EXPECT_EQ(table.Calls(), 12);
}

TEST(LumNetInterfaces, NameAndAddressesOfOneMac) {
  const struct {
    std::vector<std::string> entries;
    std::string name;
    Found addresses;
  } kCases[] = {
      // A bridge over its port: the one with an address, or with one beyond its link.
      {{"eth0 up 02:ab:cd:ef:00:01", "br0 up 02:ab:cd:ef:00:01", "eth0 fe80::1", "br0 10.0.0.5",
        "br0 fe80::2"},
       "br0",
       {0, "10.0.0.5", "fe80::2"}},
      {{"eth0 up 02:ab:cd:ef:00:01", "br0 up 02:ab:cd:ef:00:01", "eth0 fe80::1", "br0 2001:db8::2"},
       "br0",
       {0, "", "2001:db8::2"}},
      // The one that is up, whatever addresses the other has.
      {{"eth0 down 02:ab:cd:ef:00:01", "bond0 up 02:ab:cd:ef:00:01", "eth0 10.0.0.5"},
       "bond0",
       kNothing},
      // Of equals the first: a VLAN over its device; two that are down.
      {{"eth0 up 02:ab:cd:ef:00:01", "eth0.10 up 02:ab:cd:ef:00:01", "eth0.10 10.0.10.5",
        "eth0 10.0.0.5"},
       "eth0",
       {0, "10.0.0.5", ""}},
      {{"eth0 down 02:ab:cd:ef:00:01", "eth1 down 02:ab:cd:ef:00:01"}, "eth0", kNothing},
      // A label begins with a colon alone.
      {{"eth0 up 02:ab:cd:ef:00:01", "eth01 up 02:ab:cd:ef:00:02", "eth01 10.0.1.5",
        "eth01:1 10.0.1.6", "eth0~1 10.0.1.7", "eth0:1 10.0.0.6"},
       "eth0",
       {0, "10.0.0.6", ""}},
      // An address beyond the link is preferred; link-local alone is given without its scope.
      {{"eth0 up 02:ab:cd:ef:00:01", "eth0 fe80::1", "eth0 2001:db8::1", "eth0 fe80::2",
        "eth0 2001:db8::2"},
       "eth0",
       {0, "", "2001:db8::1"}},
      {{"eth0 up 02:ab:cd:ef:00:01", "eth0 fe80::1", "eth0 fe80::2"}, "eth0", {0, "", "fe80::1"}},
      // The longest texts.
      {{"eth0 up 02:ab:cd:ef:00:01", "eth0 255.255.255.255",
        "eth0 2001:1db8:1111:2222:3333:4444:5555:6666"},
       "eth0",
       {0, "255.255.255.255", "2001:1db8:1111:2222:3333:4444:5555:6666"}},
      // No address.
      {{"eth0 up 02:ab:cd:ef:00:01", "eth1 up 02:ab:cd:ef:00:02", "eth1 10.0.0.5"},
       "eth0",
       kNothing},
      // Entries without an address and with other hardware.
      {{"ppp0", "gre0 up 02:ab:cd:ef", "ib0 up 02:ab:cd:ef:00:01:00:00", "none up", "eth0",
        "eth0 up 02:ab:cd:ef:00:01", "eth0 10.0.0.5"},
       "eth0",
       {0, "10.0.0.5", ""}},
      // Read as a hardware address, that of eth1 has six bytes, and these are the MAC's.
      {{"eth1 2001:d06:2ab:cdef:1::", "eth0 up 02:ab:cd:ef:00:01"}, "eth0", kNothing},
      // Nobody.
      {{}, "", kNothing},
      {{"eth0 up 02:ab:cd:ef:00:02", "eth0 10.0.0.5"}, "", kNothing},
  };
  for (const auto& row : kCases) {
    InterfaceTable table(row.entries);
    EXPECT_EQ(LumNet::GetInterfaceName(kMacText), row.name)
        << ::testing::PrintToString(row.entries);
    EXPECT_EQ(Addresses(kMacText), row.addresses) << ::testing::PrintToString(row.entries);
  }
}

TEST(LumNetInterfaces, HexDigitsAloneAreDigits) {
  std::vector<std::string> entries;
  for (int byte = 0; byte < 256; ++byte) {
    char entry[40];
    std::snprintf(entry, sizeof entry, "eth%d up 02:ab:cd:ef:00:%02x", byte, byte);
    entries.push_back(entry);
  }
  InterfaceTable table(entries);  // every other reading of the last pair finds an interface
  const std::string digits = "0123456789abcdefABCDEF";
  for (int byte = 0; byte < 256; ++byte) {
    const auto digit = static_cast<char>(byte);
    const std::size_t place = digits.find(digit);
    const std::size_t value = place < 16 ? place : place - 6;
    const bool isDigit = place != std::string::npos;
    EXPECT_EQ(LumNet::GetInterfaceName(std::string("02:ab:cd:ef:00:0") + digit),
              isDigit ? "eth" + std::to_string(value) : "")
        << byte;
    EXPECT_EQ(LumNet::GetInterfaceName(std::string("02:ab:cd:ef:00:") + digit + "1"),
              isDigit ? "eth" + std::to_string(16 * value + 1) : "")
        << byte;
  }
}

TEST(LumNetInterfaces, TextsThatAreNoMac) {
  // The first has what a text that is not read at all leaves, the last that of one read in part.
  InterfaceTable table({"lo up 00:00:00:00:00:00", "eth0 up 02:ab:cd:ef:00:01",
                        "eth1 up 02:ab:cd:ef:00:00", "lo 127.0.0.1", "eth0 10.0.0.5",
                        "eth1 10.0.0.6"});
  const std::string good = kMacText;
  std::vector<std::string> texts = {
      "00:00:00:00:00:00",  // names none
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
}

TEST(LumNetInterfaces, HardwareAddressOfAnotherLengthIsNoMac) {
  for (const char* link : {"ib0 up", "ib0 up 02:ab:cd:ef:01", "ib0 up 02:ab:cd:ef:01:00:00",
                           "ib0 up 02:ab:cd:ef:01:00:00:00"}) {
    InterfaceTable table({link, "ib0 10.0.0.5"});
    EXPECT_EQ(LumNet::GetInterfaceName("02:ab:cd:ef:01:00"), "") << link;
    EXPECT_EQ(Addresses("02:ab:cd:ef:01:00"), kNothing) << link;
  }
}

TEST(LumNetInterfaces, SystemThatDoesNotTellItsInterfaces) {
  InterfaceTable table({"eth0 up 02:ab:cd:ef:00:01", "eth0 10.0.0.5"});
  table.Fail(ENOMEM);
  EXPECT_EQ(LumNet::GetInterfaceName(kMacText), "");
  EXPECT_EQ(Addresses(kMacText), kNothing);
  EXPECT_EQ(table.Calls(), 2);
}

TEST(LumNetInterfaces, OutputsMayBeTheTextThatNamesTheMac) {
  InterfaceTable table({"eth0 up 02:ab:cd:ef:00:01", "eth0 10.0.0.5", "eth0 2001:db8::5"});
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
