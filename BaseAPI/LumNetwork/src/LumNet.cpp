// Interfaces by MAC address over getifaddrs(3), address texts over inet_pton(3).

#include "LumNet.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <memory>

namespace {

constexpr std::size_t kMacBytes = 6;
using Mac = std::array<unsigned char, kMacBytes>;

using InterfaceList = std::unique_ptr<ifaddrs, decltype(&freeifaddrs)>;

// False when `text` is no MAC address, or the all-zero one, which names no interface.
bool ParseMac(const std::string& text, Mac& mac) {
  if (text.size() != 3 * kMacBytes - 1 || (text[2] != ':' && text[2] != '-')) {
    return false;
  }
  for (std::size_t i = 0; i < kMacBytes; ++i) {
    const char* const pair = text.data() + 3 * i;
    if (std::from_chars(pair, pair + 2, mac[i], 16).ptr != pair + 2 ||
        (i + 1 < kMacBytes && pair[2] != text[2])) {
      return false;
    }
  }
  return std::any_of(mac.begin(), mac.end(), [](unsigned char byte) { return byte != 0; });
}

InterfaceList ReadInterfaces() {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) {
    first = nullptr;
  }
  return {first, &freeifaddrs};
}

bool HasMac(const ifaddrs& entry, const Mac& mac) {
  if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_PACKET) {
    return false;
  }
  const auto* link = reinterpret_cast<const sockaddr_ll*>(entry.ifa_addr);
  return link->sll_halen == kMacBytes && std::memcmp(link->sll_addr, mac.data(), kMacBytes) == 0;
}

// An IPv4 address may carry a label ("eth0:1"); what stands before the colon is the interface.
bool BelongsTo(const ifaddrs& entry, const std::string& interface) {
  const std::size_t length = std::strcspn(entry.ifa_name, ":");
  return interface.compare(0, std::string::npos, entry.ifa_name, length) == 0;
}

struct Addresses {
  const in_addr* ipv4 = nullptr;
  const in6_addr* ipv6 = nullptr;  // link-local only when there is no other
};

Addresses AddressesOf(const InterfaceList& list, const std::string& interface) {
  Addresses found;
  for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || !BelongsTo(*entry, interface)) {
      continue;
    }
    if (entry->ifa_addr->sa_family == AF_INET && found.ipv4 == nullptr) {
      found.ipv4 = &reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr;
    } else if (entry->ifa_addr->sa_family == AF_INET6) {
      const in6_addr* address = &reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr)->sin6_addr;
      if (found.ipv6 == nullptr ||
          (IN6_IS_ADDR_LINKLOCAL(found.ipv6) && !IN6_IS_ADDR_LINKLOCAL(address))) {
        found.ipv6 = address;
      }
    }
  }
  return found;
}

// How far traffic gets that leaves by an interface, the shortest way first; see the class comment.
enum class Reach { kDown, kLink, kBeyondLink };

Reach ReachOf(const InterfaceList& list, const ifaddrs& link) {
  if ((link.ifa_flags & IFF_UP) == 0) {
    return Reach::kDown;
  }
  const Addresses addresses = AddressesOf(list, link.ifa_name);
  const bool isBeyondLink = addresses.ipv4 != nullptr ||
                            (addresses.ipv6 != nullptr && !IN6_IS_ADDR_LINKLOCAL(addresses.ipv6));
  return isBeyondLink ? Reach::kBeyondLink : Reach::kLink;
}

// Null when no interface has the MAC that `text` writes. The name lives as long as `list`.
const char* FindInterface(const InterfaceList& list, const std::string& text) {
  Mac mac = {};
  if (!ParseMac(text, mac)) {
    return nullptr;
  }
  const char* name = nullptr;
  Reach best = Reach::kDown;
  for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
    if (!HasMac(*entry, mac)) {
      continue;
    }
    const Reach reach = ReachOf(list, *entry);
    if (name == nullptr || reach > best) {
      best = reach;
      name = entry->ifa_name;
    }
  }
  return name;
}

// inet_pton sees a C string: a text with a zero byte inside must not pass for its beginning.
bool IsAddress(int family, const std::string& text) {
  in6_addr address;  // room for either family
  return text.find('\0') == std::string::npos && inet_pton(family, text.c_str(), &address) == 1;
}

std::string AddressText(int family, const void* address) {
  char text[INET6_ADDRSTRLEN] = "";  // room for either family
  inet_ntop(family, address, text, sizeof text);
  return text;
}

}  // namespace

int LumNet::GetLocalIpAddress(const std::string& mac, std::string& ipv4, std::string& ipv6) {
  const InterfaceList list = ReadInterfaces();
  const char* interface = FindInterface(list, mac);
  const Addresses found = interface != nullptr ? AddressesOf(list, interface) : Addresses();
  ipv4 = found.ipv4 != nullptr ? AddressText(AF_INET, found.ipv4) : "";
  ipv6 = found.ipv6 != nullptr ? AddressText(AF_INET6, found.ipv6) : "";
  return ipv4.empty() && ipv6.empty() ? -1 : 0;
}

std::string LumNet::GetInterfaceName(const std::string& mac) {
  const InterfaceList list = ReadInterfaces();
  const char* interface = FindInterface(list, mac);
  return interface != nullptr ? interface : "";
}

bool LumNet::IsIPv4Address(const std::string& text) {
  return IsAddress(AF_INET, text);
}

bool LumNet::IsIPv6Address(const std::string& text) {
  return IsAddress(AF_INET6, text);
}
