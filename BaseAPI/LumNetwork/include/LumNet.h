// Questions about the machine's network interfaces and about address texts.

#ifndef LUM_NET_H
#define LUM_NET_H

#include <string>

// Thread safety: every operation may be called from any thread at any time; none keeps state, so
// each answer is the system's at the time of the call.
//
// A MAC address is written as six pairs of hexadecimal digits in either case with one separator
// throughout, ":" or "-": "02:fc:00:00:00:01", "02-FC-00-00-00-01". Any other text names no
// interface, and neither does the all-zero address: the loopback and many tunnels carry it for want
// of one of their own.
//
// Several interfaces may share a MAC (a bridge and its port, a VLAN and the device below it, a bond
// and its members). The one that traffic can leave by is meant: an interface that is up and has an
// IPv4 address or an IPv6 address beyond its link comes first, then one that is up, then any;
// within a group the system's own order holds.
class __attribute__((visibility("default"))) LumNet {
 public:
  // Finds the addresses of the interface that has `mac`: in `ipv4` the first IPv4 address, in
  // `ipv6` the first IPv6 address that is not link-local or, if there is none, the first link-local
  // one without its scope (no "%eth0"). A family without an address leaves its text empty.
  //
  // Returns 0 when at least one address was found. Returns -1, with both texts empty, when no
  // interface has `mac`, when it has no address, or when the system does not tell its interfaces.
  static int GetLocalIpAddress(const std::string& mac, std::string& ipv4, std::string& ipv6);

  // Returns the name of the interface that has `mac` ("eth0"), or "" when there is none or when the
  // system does not tell its interfaces.
  static std::string GetInterfaceName(const std::string& mac);

  // True for four decimal numbers from 0 to 255 without leading zeros, joined by dots, and nothing
  // else.
  static bool IsIPv4Address(const std::string& text);

  // True for an IPv6 address in any of its text forms (RFC 4291, section 2.2), without brackets,
  // prefix length or scope, and nothing else.
  static bool IsIPv6Address(const std::string& text);
};

#endif  // LUM_NET_H
