// One thread, two sockets a connection, one poll.

#include "Relay.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "support/Signals.h"
#include "wire/Socket.h"

namespace lumtest {

namespace {

// Closes with a reset.
void Reset(int socket) {
  const linger atOnce = {1, 0};
  setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  close(socket);
}

}  // namespace

Relay::Relay(std::uint16_t target) : m_target(target) {
  SocketAddress bound;
  m_listener = BoundSocket("127.0.0.1", &bound);
  m_port = bound.Port();
  m_stop = eventfd(0, EFD_CLOEXEC);
  if (m_stop < 0 || listen(m_listener.Get(), 16) != 0) {
    throw SystemError("relay");
  }
  const AllSignalsBlocked blocked;
  m_thread = std::thread([this] { Serve(); });
}

Relay::~Relay() {
  eventfd_write(m_stop, 1);
  m_thread.join();
  close(m_stop);
}

std::string Relay::Url(const std::string& path) const {
  return MakeUrl("https", "127.0.0.1", m_port, path);
}

void Relay::CutAfter(std::uint64_t clientBytes, std::uint64_t serverBytes) {
  m_limit[0] = clientBytes;
  m_limit[1] = serverBytes;
  m_passed[0] = m_passed[1] = 0;
  m_ends = 0;
}

void Relay::WaitForEnds(std::size_t count) const {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (m_ends < count) {
    if (std::chrono::steady_clock::now() > end) {
      throw std::runtime_error("the relay's connection does not end");
    }
    std::this_thread::yield();
  }
}

void Relay::Serve() {
  while (true) {
    pollfd waiting[] = {{m_stop, POLLIN, 0}, {m_listener.Get(), POLLIN, 0}};
    poll(waiting, 2, -1);
    if (waiting[0].revents != 0) {
      return;
    }
    const int client = accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC);
    const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    SocketAddress target("127.0.0.1", m_target);
    if (client < 0 || server < 0 || connect(server, target.Get(), target.length) != 0) {
      return;
    }
    const int on = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(server, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    Pass(client, server);
    ++m_ends;
  }
}

void Relay::Pass(int client, int server) {
  const int sockets[] = {client, server};
  while (m_passed[0] < m_limit[0] && m_passed[1] < m_limit[1]) {
    pollfd waiting[] = {{client, POLLIN, 0}, {server, POLLIN, 0}, {m_stop, POLLIN, 0}};
    poll(waiting, 3, -1);
    if (waiting[2].revents != 0) {
      break;
    }
    for (int from = 0; from < 2; ++from) {
      if (waiting[from].revents == 0) {
        continue;
      }
      char bytes[16384];
      const std::uint64_t left = m_limit[from] - m_passed[from];
      const std::size_t size = std::min<std::uint64_t>(sizeof bytes, left);
      const ssize_t got = recv(sockets[from], bytes, size, 0);
      if (got <= 0) {
        close(client);
        close(server);
        return;
      }
      m_passed[from] += static_cast<std::uint64_t>(got);
      if (send(sockets[1 - from], bytes, static_cast<std::size_t>(got), MSG_NOSIGNAL) != got) {
        Reset(client);
        Reset(server);
        return;
      }
    }
  }
  Reset(client);
  Reset(server);
}

}  // namespace lumtest
