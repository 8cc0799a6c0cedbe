// Small helpers around socket addresses.

#ifndef LUM_TESTING_WIRE_SOCKET_H
#define LUM_TESTING_WIRE_SOCKET_H

#include <sys/socket.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "FileDescriptor.h"

namespace lumtest {

// A socket address of either family, and its length.
struct SocketAddress {
  sockaddr_storage storage = {};
  socklen_t length = sizeof storage;

  SocketAddress() = default;
  // Throws std::runtime_error when `address` is no numeric address.
  SocketAddress(const std::string& address, std::uint16_t port);

  sockaddr* Get() { return reinterpret_cast<sockaddr*>(&storage); }
  const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&storage); }
  int Family() const { return storage.ss_family; }
  std::string Address() const;
  std::uint16_t Port() const;
};

// A std::runtime_error with errno's text.
std::runtime_error SystemError(const std::string& what);

// A TCP socket (close-on-exec) bound to a port of the kernel's choice; which one is in `bound`.
// Throws std::runtime_error.
FileDescriptor BoundSocket(const std::string& address, SocketAddress* bound);

// "scheme://host:port/path", with brackets around an IPv6 host.
std::string MakeUrl(const std::string& scheme, const std::string& host, std::uint16_t port,
                    const std::string& path);

}  // namespace lumtest

#endif  // LUM_TESTING_WIRE_SOCKET_H
