// Listening and accepting.
#ifndef LUM_BACKEND_SERVER_H
#define LUM_BACKEND_SERVER_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "Backend.h"
#include "Boost.h"
#include "Connection.h"

// Accepts connections on its ports and serves them on a few threads until it is told to stop. As
// many connections are held as descriptors allow; more wait in the kernel's queue.
class Server {
 public:
  // Serves `backend`, which must outlive the server.
  explicit Server(Backend& backend, const Patience& patience = {});

  // Listens on a numeric address; port 0 lets the kernel choose. Without `tls` the port speaks
  // plain HTTP. Returns the address and port in use as a URL writes them, "127.0.0.1:40123". Throws
  // std::runtime_error naming address and port.
  std::string Listen(const std::string& address, std::uint16_t port,
                     std::optional<boost::asio::ssl::context> tls);

  // Calls `ready` when it serves; until SIGINT or SIGTERM comes, then ends every connection.
  // Returns when the last one has ended, or a few seconds later.
  void Run(const std::function<void()>& ready);

 private:
  struct Listener {
    boost::asio::ip::tcp::acceptor socket;
    std::optional<boost::asio::ssl::context> tls;  // nothing: plain HTTP
  };

  void Stop();
  Task<void> Accept(Listener& listener);
  Task<void> Serve(std::shared_ptr<Connection> connection);

  Backend& m_backend;
  const Patience m_patience;
  const std::size_t m_mostConnections;
  boost::asio::io_context m_io;
  std::list<Listener> m_listeners;
  boost::asio::steady_timer m_last;  // how long connections may take to end
  std::atomic<bool> m_stopping{false};
  std::atomic<std::size_t> m_held{0};  // connections
  std::mutex m_mutex;
  std::set<std::shared_ptr<Connection>> m_connections;  // guarded by m_mutex
};

#endif  // LUM_BACKEND_SERVER_H
