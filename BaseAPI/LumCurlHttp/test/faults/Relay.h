// A TCP relay that breaks connections at a given byte of either direction, of TLS handshakes too.

#ifndef LUM_TEST_FAULTS_RELAY_H
#define LUM_TEST_FAULTS_RELAY_H

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "FileDescriptor.h"

namespace lumtest {

// Passes one connection after the other on to a port of 127.0.0.1, on a thread of its own.
class Relay {
 public:
  static constexpr std::uint64_t kNever = UINT64_MAX;

  explicit Relay(std::uint16_t target);
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  std::string Url(const std::string& path) const;

  // From the next connection on: resets it on both sides as soon as so many bytes of the client's
  // or of the server's have been passed on, and no byte more.
  void CutAfter(std::uint64_t clientBytes, std::uint64_t serverBytes);

  // What passed in the connections that have ended since CutAfter was called.
  std::uint64_t ClientBytes() const { return m_passed[0]; }
  std::uint64_t ServerBytes() const { return m_passed[1]; }

  // Waits until so many connections have ended.
  void WaitForEnds(std::size_t count) const;

 private:
  void Serve();
  void Pass(int client, int server);

  std::uint16_t m_target;
  std::uint16_t m_port = 0;
  FileDescriptor m_listener;
  int m_stop = -1;
  std::atomic<std::uint64_t> m_limit[2] = {{kNever}, {kNever}};
  std::atomic<std::uint64_t> m_passed[2] = {{0}, {0}};
  std::atomic<std::size_t> m_ends{0};
  std::thread m_thread;
};

}  // namespace lumtest

#endif  // LUM_TEST_FAULTS_RELAY_H
