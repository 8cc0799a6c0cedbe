// The accept loop.
#include "Server.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <exception>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "Connection.h"
#include "Session.h"

namespace {

constexpr std::size_t kMostConnections = 256;  // each one has a thread
constexpr int kBreath = 50;                    // milliseconds until a full server looks again

struct AddressFree {
  void operator()(addrinfo* address) const { freeaddrinfo(address); }
};

[[noreturn]] void CannotListen(const std::string& address, std::uint16_t port,
                               const std::string& reason) {
  throw std::runtime_error("cannot listen on " + address + " port " + std::to_string(port) + ": " +
                           reason);
}

}  // namespace

Server::~Server() {
  Join(true);
}

std::string Server::Listen(const std::string& address, std::uint16_t port, SslContext context) {
  addrinfo hints = {};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int failure = getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (failure != 0) {
    CannotListen(address, port, gai_strerror(failure));
  }
  const std::unique_ptr<addrinfo, AddressFree> where(found);
  FileDescriptor socket(::socket(where->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  // SO_REUSEADDR, so that a restart need not wait for old connections to fade; not SO_REUSEPORT,
  // with which two back ends would share a port and each get half of the requests.
  const int on = 1;
  if (!socket || ::setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      ::bind(socket.Get(), where->ai_addr, where->ai_addrlen) != 0 ||
      ::listen(socket.Get(), SOMAXCONN) != 0) {
    CannotListen(address, port, std::generic_category().message(errno));
  }
  sockaddr_storage bound = {};
  socklen_t length = sizeof bound;
  char host[NI_MAXHOST] = "";
  char service[NI_MAXSERV] = "";
  if (::getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&bound), &length) != 0 ||
      getnameinfo(reinterpret_cast<sockaddr*>(&bound), length, host, sizeof host, service,
                  sizeof service, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    CannotListen(address, port, "the port chosen cannot be found out");
  }
  m_listeners.push_back({std::move(socket), std::move(context)});
  const std::string name = where->ai_family == AF_INET6 ? "[" + std::string(host) + "]" : host;
  return name + ":" + service;
}

void Server::Run() {
  for (;;) {
    const bool full = m_workers.size() >= kMostConnections;
    std::vector<pollfd> ends{{m_stop, POLLIN, 0}};
    for (const Listener& listener : m_listeners) {
      ends.push_back({full ? -1 : listener.socket.Get(), POLLIN, 0});
    }
    if (::poll(ends.data(), ends.size(), full ? kBreath : -1) < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "poll");
    }
    if (ends[0].revents != 0) {
      break;
    }
    Join(false);
    for (std::size_t i = 0; i < m_listeners.size(); ++i) {
      if (ends[i + 1].revents != 0) {
        Accept(m_listeners[i]);
      }
    }
  }
  m_listeners.clear();
  Join(true);
}

void Server::Accept(const Listener& listener) {
  FileDescriptor socket(
      ::accept4(listener.socket.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket) {
    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
      // The connection stays in the queue: without a pause this would spin.
      pollfd stop = {m_stop, POLLIN, 0};
      ::poll(&stop, 1, kBreath);
    }
    return;
  }
  auto connection = std::make_unique<Connection>(std::move(socket), m_stop, listener.context.get());
  Worker& worker = m_workers.emplace_back();
  try {
    worker.thread = std::thread([this, &worker, connection = std::move(connection)] {
      try {
        Session(m_backend, *connection).Run();
      } catch (const std::exception& failure) {
        m_backend.Complain(failure.what());
      }
      worker.done = true;
    });
  } catch (const std::system_error& failure) {
    m_workers.pop_back();
    m_backend.Complain(failure.what());
  }
}

void Server::Join(bool all) {
  for (auto worker = m_workers.begin(); worker != m_workers.end();) {
    if (!all && !worker->done) {
      ++worker;
      continue;
    }
    if (worker->thread.joinable()) {
      worker->thread.join();
    }
    worker = m_workers.erase(worker);
  }
}
