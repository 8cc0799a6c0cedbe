// The accept loops.
#include "Server.h"

#include <sys/resource.h>

#include <algorithm>
#include <boost/lexical_cast.hpp>
#include <csignal>
#include <exception>
#include <stdexcept>
#include <thread>
#include <vector>

namespace asio = boost::asio;
using Error = boost::system::error_code;

namespace {

constexpr std::size_t kSpareDescriptors = 100;    // for files, the database and what is listened on
constexpr unsigned kFewestThreads = 4;            // one that waits for a disk does not hold up all
constexpr std::chrono::milliseconds kBreath(50);  // until a full server looks again
constexpr std::chrono::seconds kLastWords(4);     // for connections, when the back end ends
static_assert(kLastWords < std::chrono::seconds(5),
              "a signal ends the back end within five seconds");

// Raises the limit on descriptors as far as it goes.
std::size_t MostConnections() {
  rlimit limit = {};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  ::getrlimit(RLIMIT_NOFILE, &limit);
  return std::max<std::size_t>(limit.rlim_cur, 2 * kSpareDescriptors) - kSpareDescriptors;
}

}  // namespace

Server::Server(Backend& backend, const Patience& patience)
    : m_backend(backend),
      m_patience(patience),
      m_mostConnections(MostConnections()),
      m_last(asio::make_strand(m_io)) {}

std::string Server::Listen(const std::string& address, std::uint16_t port,
                           std::optional<asio::ssl::context> tls) {
  using Acceptor = asio::ip::tcp::acceptor;
  try {
    const asio::ip::tcp::endpoint where(asio::ip::make_address(address), port);
    Acceptor socket(asio::make_strand(m_io));
    socket.open(where.protocol());
    // So that a restart need not wait for old connections to fade; without SO_REUSEPORT, with which
    // two back ends would share a port and each get half of the requests.
    socket.set_option(Acceptor::reuse_address(true));
    socket.bind(where);
    socket.listen();
    const auto name = boost::lexical_cast<std::string>(socket.local_endpoint());
    m_listeners.push_back({std::move(socket), std::move(tls)});
    return name;
  } catch (const boost::system::system_error& failure) {
    throw std::runtime_error("cannot listen on " + address + " port " + std::to_string(port) +
                             ": " + failure.code().message());
  }
}

void Server::Run(const std::function<void()>& ready) {
  asio::signal_set ends(m_io, SIGINT, SIGTERM);
  ends.async_wait([this](const Error& /*failure*/, int /*signal*/) { Stop(); });
  for (Listener& listener : m_listeners) {
    asio::co_spawn(listener.socket.get_executor(), Accept(listener), asio::detached);
  }
  std::vector<std::thread> threads(std::max(kFewestThreads, std::thread::hardware_concurrency()));
  for (std::thread& thread : threads) {
    thread = std::thread([this] { m_io.run(); });
  }
  ready();
  for (std::thread& thread : threads) {
    thread.join();
  }
  m_backend.Drain();
}

void Server::Stop() {
  m_stopping = true;
  for (Listener& listener : m_listeners) {
    asio::post(listener.socket.get_executor(), [&listener] {
      Error ignored;
      listener.socket.close(ignored);
    });
  }
  const std::lock_guard<std::mutex> lock(m_mutex);
  for (const std::shared_ptr<Connection>& connection : m_connections) {
    asio::post(connection->Executor(), [connection] { connection->Stop(); });
  }
  asio::post(m_last.get_executor(), [this] {
    if (m_held > 0) {
      m_last.expires_after(kLastWords);
      m_last.async_wait([this](const Error& failure) {
        if (!failure) {
          m_io.stop();
        }
      });
    }
  });
}

Task<void> Server::Accept(Listener& listener) {
  asio::steady_timer breath(listener.socket.get_executor());
  while (!m_stopping) {
    asio::ip::tcp::socket socket(asio::make_strand(m_io));
    Error error = asio::error::no_descriptors;
    if (m_held < m_mostConnections) {
      co_await listener.socket.async_accept(socket,
                                            asio::redirect_error(asio::use_awaitable, error));
    }
    if (error) {
      // The connection stays in the kernel's queue: without a pause this would spin.
      breath.expires_after(kBreath);
      co_await breath.async_wait(asio::use_awaitable);
      continue;
    }
    ++m_held;
    const auto strand = socket.get_executor();
    auto connection = std::make_shared<Connection>(
        std::move(socket), listener.tls ? &*listener.tls : nullptr, m_backend, m_patience);
    asio::co_spawn(strand, Serve(std::move(connection)), asio::detached);
  }
}

Task<void> Server::Serve(std::shared_ptr<Connection> connection) {
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_connections.insert(connection);
  }
  try {
    if (!m_stopping) {
      co_await connection->Run();
    }
  } catch (const std::exception& failure) {
    Backend::Complain(failure.what());
  }
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_connections.erase(connection);
  }
  connection.reset();
  if (--m_held == 0 && m_stopping) {
    asio::post(m_last.get_executor(), [this] { m_last.cancel(); });
  }
}
