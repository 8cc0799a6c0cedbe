// Listening, accepting, one thread per connection.
#ifndef LUM_BACKEND_SERVER_H
#define LUM_BACKEND_SERVER_H

#include <atomic>
#include <cstdint>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "Backend.h"
#include "FileDescriptor.h"
#include "Tls.h"

// Accepts connections on its ports and serves them until it is told to stop. One thread uses it.
class Server {
 public:
  // Serves `backend`, which must outlive the server, until the descriptor `stop` is readable.
  Server(Backend& backend, int stop) : m_backend(backend), m_stop(stop) {}
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server();

  // Listens on a numeric address; port 0 lets the kernel choose. Without `context` the port speaks
  // plain HTTP. Returns the address and port in use as a URL writes them, "127.0.0.1:40123". Throws
  // std::runtime_error naming address and port.
  std::string Listen(const std::string& address, std::uint16_t port, SslContext context);

  // Serves until told to stop, then ends every connection and waits for the threads.
  void Run();

 private:
  struct Listener {
    FileDescriptor socket;
    SslContext context;  // null: plain HTTP
  };
  struct Worker {
    std::thread thread;
    std::atomic<bool> done{false};
  };

  void Accept(const Listener& listener);
  void Join(bool all);

  Backend& m_backend;
  const int m_stop;
  std::vector<Listener> m_listeners;
  std::list<Worker> m_workers;
};

#endif  // LUM_BACKEND_SERVER_H
