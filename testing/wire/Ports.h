// Ports that refuse, and ports that never answer.

#ifndef LUM_TESTING_WIRE_PORTS_H
#define LUM_TESTING_WIRE_PORTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "FileDescriptor.h"

namespace lumtest {

// A port of the kernel's choice that is taken, so that nobody else can get it, but not listened on:
// every connection to it is refused at once. Any thread may use it.
class RefusedPort {
 public:
  // `address` is an IPv4 or IPv6 address of this machine. Throws std::runtime_error.
  explicit RefusedPort(const std::string& address = "127.0.0.1");

  std::uint16_t Port() const { return m_port; }
  std::string Url(const std::string& scheme = "http", const std::string& path = "/") const;

 protected:
  const std::string m_address;
  FileDescriptor m_socket;
  std::uint16_t m_port;
};

// A port whose queue of connections is full: a further connection is neither made nor refused, as
// if the packets were lost. Any thread may use it.
class SilentPort : public RefusedPort {
 public:
  SilentPort();

 private:
  std::vector<FileDescriptor> m_fillers;
};

}  // namespace lumtest

#endif  // LUM_TESTING_WIRE_PORTS_H
