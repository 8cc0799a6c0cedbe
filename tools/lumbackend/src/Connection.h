// The life of one connection: requests in, answers out.
#ifndef LUM_BACKEND_CONNECTION_H
#define LUM_BACKEND_CONNECTION_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "Backend.h"
#include "Boost.h"
#include "RequestParser.h"

// How long clients may take.
struct Patience {
  std::chrono::milliseconds idle{300'000};             // between two requests
  std::chrono::milliseconds head{10'000};              // from the first byte of a head to its last
  std::chrono::milliseconds body{30'000};              // for each so many bytes of a body:
  std::uint64_t bodyBytes = std::uint64_t{30} * 1024;  // 1 KiB/s
  std::chrono::milliseconds answer{30'000};            // for each piece of an answer
  std::chrono::milliseconds farewell{2'000};           // for a client that does not close its side
};

// One accepted connection, plain or TLS. Everything but Stop() runs on the socket's own strand.
class Connection {
 public:
  // Serves `backend`, which must outlive the object. `tls` is null for plain HTTP.
  Connection(boost::asio::ip::tcp::socket socket, boost::asio::ssl::context* tls, Backend& backend,
             const Patience& patience);

  // Serves until the connection ends.
  Task<void> Run();

  // Ends what is under way: from now on reads fail at once, and writes do not wait. To be called on
  // the strand.
  void Stop();

  boost::asio::any_io_executor Executor() { return m_tcp.get_executor(); }

 private:
  class Body;
  using Error = boost::system::error_code;

  Task<bool> Handshake();
  Task<bool> AwaitRequest();
  Task<bool> Serve();
  Task<void> ReadHead();
  Task<Reply> Answer(Body& body);
  Task<void> Send(bool closing);
  Task<bool> SendStream(BodySource& stream, bool chunked);
  Task<void> Pause(std::chrono::milliseconds time);
  Task<void> Close();

  Task<std::size_t> Receive(std::size_t most, Error& error);
  Task<bool> Write(std::string_view bytes);

  boost::beast::tcp_stream m_tcp;
  std::optional<boost::asio::ssl::stream<boost::beast::tcp_stream&>> m_tls;
  boost::asio::steady_timer m_pause;  // before an answer that is delayed on purpose
  Backend& m_backend;
  const Patience& m_patience;
  boost::beast::flat_buffer m_input;  // received, not yet taken
  bool m_stopping = false;
  bool m_broken = false;  // neither end can be used any more
  std::optional<std::uint64_t> m_untilCut;
  Exchange m_exchange;  // under way
  std::optional<RequestParser> m_parser;
};

#endif  // LUM_BACKEND_CONNECTION_H
