// A link between the two network namespaces of a test that loses, delays or swallows packets.

#ifndef LUM_TEST_FAULTS_IMPAIREDLINK_H
#define LUM_TEST_FAULTS_IMPAIREDLINK_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <thread>

namespace lumtest {

struct Impairment {
  int lossPercent = 0;                 // of the packets in each direction, at random
  std::chrono::milliseconds delay{0};  // of each packet from the client to the server
  std::size_t largestPacket = 65535;   // bytes; larger ones vanish without a word
};

// To be made within RunInNetNamespace with a pair of interfaces, beside which packets go from one
// tun device to another through a thread of this process: not every kernel has netem.
class ImpairedLink {
 public:
  // Throws std::runtime_error.
  explicit ImpairedLink(const Impairment& impairment);
  ~ImpairedLink();
  ImpairedLink(const ImpairedLink&) = delete;
  ImpairedLink& operator=(const ImpairedLink&) = delete;

  // Of the far end, in the peer's namespace, across the impairment.
  static constexpr char kPeerAddress[] = "10.204.0.2";

  // Packets that were kept from the other side.
  std::size_t Lost() const { return m_lost; }

 private:
  void Pass();

  const Impairment m_impairment;
  int m_own = -1;
  int m_peer = -1;
  int m_stop = -1;
  std::atomic<std::size_t> m_lost{0};
  std::thread m_thread;
};

}  // namespace lumtest

#endif  // LUM_TEST_FAULTS_IMPAIREDLINK_H
