// Two tun devices and a queue.

#include "ImpairedLink.h"

#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/NetNamespace.h"
#include "support/Process.h"

namespace lumtest {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr char kOwnAddress[] = "10.204.0.1";

void MustRun(const std::vector<std::string>& argv) {
  const ProcessResult result = RunCommand(argv);
  if (!result.Succeeded()) {
    throw std::runtime_error(argv[0] + " " + argv[1] + ": " + result.Describe());
  }
}

// A tun device in this thread's namespace, up, with a route to the other end.
int OpenTun(const std::string& name, const std::string& address, const std::string& other) {
  const int tun = open("/dev/net/tun", O_RDWR | O_CLOEXEC | O_NONBLOCK);
  ifreq request = {};
  request.ifr_flags = IFF_TUN | IFF_NO_PI;
  name.copy(request.ifr_name, IFNAMSIZ - 1);
  if (tun < 0 || ioctl(tun, TUNSETIFF, &request) != 0) {
    throw std::runtime_error(std::string("/dev/net/tun: ") + std::strerror(errno));
  }
  MustRun({"ip", "address", "add", address, "peer", other, "dev", name});
  MustRun({"ip", "link", "set", name, "up"});
  return tun;
}

struct Packet {
  steady_clock::time_point due;
  int to;
  std::vector<char> bytes;
};

}  // namespace

ImpairedLink::ImpairedLink(const Impairment& impairment) : m_impairment(impairment) {
  m_own = OpenTun("lumtun0", kOwnAddress, kPeerAddress);
  InPeerNamespace([this] { m_peer = OpenTun("lumtun1", kPeerAddress, kOwnAddress); });
  m_stop = eventfd(0, EFD_CLOEXEC);
  m_thread = std::thread([this] { Pass(); });
}

ImpairedLink::~ImpairedLink() {
  eventfd_write(m_stop, 1);
  m_thread.join();
  for (const int opened : {m_own, m_peer, m_stop}) {
    close(opened);
  }
}

void ImpairedLink::Pass() {
  std::mt19937 random(std::random_device{}());
  std::deque<Packet> waiting[2];  // from this end; from the peer's
  const int ends[] = {m_own, m_peer};
  while (true) {
    int timeout = -1;
    for (auto& queue : waiting) {
      while (!queue.empty() && queue.front().due <= steady_clock::now()) {
        // What the other end has no room for is lost, as on any link.
        static_cast<void>(
            write(queue.front().to, queue.front().bytes.data(), queue.front().bytes.size()) < 0 &&
            ++m_lost > 0);
        queue.pop_front();
      }
      if (!queue.empty()) {
        const auto left =
            std::chrono::ceil<milliseconds>(queue.front().due - steady_clock::now()).count();
        const int next = std::max(0, static_cast<int>(left));
        timeout = timeout < 0 ? next : std::min(timeout, next);
      }
    }
    pollfd polled[] = {{m_stop, POLLIN, 0}, {m_own, POLLIN, 0}, {m_peer, POLLIN, 0}};
    poll(polled, 3, timeout);
    if (polled[0].revents != 0) {
      return;
    }
    for (int from = 0; from < 2; ++from) {
      std::vector<char> bytes(65536);
      const ssize_t got = read(ends[from], bytes.data(), bytes.size());
      if (got <= 0) {
        continue;
      }
      bytes.resize(static_cast<std::size_t>(got));
      const bool lost = static_cast<int>(random() % 100) < m_impairment.lossPercent ||
                        bytes.size() > m_impairment.largestPacket;
      if (lost) {
        ++m_lost;
        continue;
      }
      const milliseconds delay = from == 0 ? m_impairment.delay : milliseconds(0);
      waiting[from].push_back({steady_clock::now() + delay, ends[1 - from], std::move(bytes)});
    }
  }
}

}  // namespace lumtest
