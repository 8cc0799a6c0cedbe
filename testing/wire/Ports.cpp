// Socket address helpers, refused and silent ports.

#include "wire/Ports.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <system_error>

#include "wire/Socket.h"

namespace lumtest {

namespace {

// Whether a listening socket takes no more connections, the last of which is `connected` or not.
// For such a socket the kernel reports the length of its queue and the limit in these two fields.
// An emulator that passes no such question on leaves the connection that is not taken as the
// answer.
bool QueueIsFull(int listener, bool connected) {
  tcp_info info = {};
  socklen_t size = sizeof info;
  if (getsockopt(listener, IPPROTO_TCP, TCP_INFO, &info, &size) != 0 ||
      size < offsetof(tcp_info, tcpi_sacked) + sizeof info.tcpi_sacked) {
    return !connected;
  }
  return info.tcpi_unacked > info.tcpi_sacked;
}

}  // namespace

SocketAddress::SocketAddress(const std::string& address, std::uint16_t port) {
  addrinfo hints = {};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
    throw std::runtime_error("not an IP address: " + address);
  }
  length = found->ai_addrlen;
  std::memcpy(&storage, found->ai_addr, length);
  freeaddrinfo(found);
}

std::string SocketAddress::Address() const {
  char text[INET6_ADDRSTRLEN] = "";
  getnameinfo(Get(), length, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
  return text;
}

std::uint16_t SocketAddress::Port() const {
  return ntohs(Family() == AF_INET6 ? reinterpret_cast<const sockaddr_in6*>(&storage)->sin6_port
                                    : reinterpret_cast<const sockaddr_in*>(&storage)->sin_port);
}

std::runtime_error SystemError(const std::string& what) {
  return std::system_error(errno, std::generic_category(), what);
}

FileDescriptor BoundSocket(const std::string& address, SocketAddress* bound) {
  SocketAddress wanted(address, 0);
  FileDescriptor made(socket(wanted.Family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
  *bound = SocketAddress();
  if (bind(made.Get(), wanted.Get(), wanted.length) != 0 ||
      getsockname(made.Get(), bound->Get(), &bound->length) != 0) {
    throw SystemError("bind to " + address);
  }
  return made;
}

std::string MakeUrl(const std::string& scheme, const std::string& host, std::uint16_t port,
                    const std::string& path) {
  const bool v6 = host.find(':') != std::string::npos;
  return scheme + "://" + (v6 ? "[" + host + "]" : host) + ":" + std::to_string(port) + path;
}

RefusedPort::RefusedPort(const std::string& address) : m_address(address) {
  SocketAddress bound;
  m_socket = BoundSocket(address, &bound);
  m_port = bound.Port();
}

std::string RefusedPort::Url(const std::string& scheme, const std::string& path) const {
  return MakeUrl(scheme, m_address, m_port, path);
}

SilentPort::SilentPort() {
  if (listen(m_socket.Get(), 0) != 0) {
    throw SystemError("listen");
  }
  // Connections nobody accepts, until the kernel says that the queue is full.
  const SocketAddress address(m_address, m_port);
  constexpr int kMostFillers = 16;
  constexpr int kRoundMilliseconds = 200;
  for (int i = 0; i < kMostFillers; ++i) {
    m_fillers.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    pollfd waiting = {m_fillers.back().Get(), POLLOUT, 0};
    bool connected = connect(waiting.fd, address.Get(), address.length) == 0;
    if (!connected && errno == EINPROGRESS) {
      connected = poll(&waiting, 1, kRoundMilliseconds) == 1;
    }
    if (QueueIsFull(m_socket.Get(), connected)) {
      return;
    }
  }
  throw std::runtime_error("the connection queue did not fill up");
}

}  // namespace lumtest
