// From connection to back end and back.
#include "Connection.h"

#include <algorithm>
#include <array>
#include <boost/lexical_cast.hpp>
#include <exception>
#include <sstream>

#include "Tls.h"

namespace asio = boost::asio;
namespace http = boost::beast::http;
using boost::asio::redirect_error;
using boost::asio::use_awaitable;

namespace {

constexpr std::size_t kFirstPiece = 512;  // bytes that an idle connection keeps room for
constexpr std::size_t kHeadPiece = 8192;  // read at once
constexpr std::size_t kBodyPiece = 65536;

bool IsBodyless(int status) {
  return status == 204 || status == 304;
}

}  // namespace

// The body of the request being served.
class Connection::Body final : public BodySource {
 public:
  explicit Body(Connection& connection) : m_connection(connection) {}

  Task<std::string_view> Next() override {
    Connection& own = m_connection;
    RequestParser& parser = *own.m_parser;
    own.m_input.consume(m_used);
    m_used = 0;
    if (!m_asked) {
      co_await Ask();
    }
    while (!parser.is_done() && parser.RefusalStatus() == 0) {
      if (own.m_input.size() > 0) {
        const auto data = own.m_input.data();
        const std::string_view bytes(static_cast<const char*>(data.data()), data.size());
        m_used = parser.Take(bytes);
        if (!parser.Piece().empty()) {
          own.m_exchange.bytesIn += parser.Piece().size();
          m_window += parser.Piece().size();
          co_return parser.Piece();
        }
        own.m_input.consume(m_used);
        if (std::exchange(m_used, 0) > 0) {
          continue;
        }
      }
      if (parser.RefusalStatus() != 0 || !co_await Receive()) {
        break;
      }
    }
    co_return std::string_view();
  }

  bool IsWhole() const override {
    return m_connection.m_parser->is_done() && m_connection.m_parser->RefusalStatus() == 0;
  }

  // To be called when nobody looks at the last piece any more.
  void Release() { m_connection.m_input.consume(std::exchange(m_used, 0)); }

 private:
  // A client that holds its body back is told to send it.
  Task<void> Ask() {
    m_asked = true;
    m_windowEnd = std::chrono::steady_clock::now() + m_connection.m_patience.body;
    const std::string* expect = m_connection.m_exchange.call.Header("Expect");
    if (expect != nullptr && boost::beast::iequals(*expect, "100-continue")) {
      co_await m_connection.Write("HTTP/1.1 100 Continue\r\n\r\n");
      m_connection.m_exchange.bytesOut = 0;  // that was no part of the answer
    }
  }

  // Waits for more, as long as the client has sent enough of late.
  Task<bool> Receive() {
    if (m_window >= m_connection.m_patience.bodyBytes) {
      m_window = 0;
      m_windowEnd = std::chrono::steady_clock::now() + m_connection.m_patience.body;
    }
    m_connection.m_tcp.expires_at(m_windowEnd);
    Error error;
    co_return co_await m_connection.Receive(kBodyPiece, error) > 0;
  }

  Connection& m_connection;
  bool m_asked = false;
  std::size_t m_used = 0;  // bytes of the input that the last piece and its frame take
  std::uint64_t m_window = 0;
  std::chrono::steady_clock::time_point m_windowEnd;
};

Connection::Connection(asio::ip::tcp::socket socket, asio::ssl::context* tls, Backend& backend,
                       const Patience& patience)
    : m_tcp(std::move(socket)), m_pause(Executor()), m_backend(backend), m_patience(patience) {
  // Answers are small or come in large pieces; neither gains from being held back.
  Error ignored;
  m_tcp.socket().set_option(asio::ip::tcp::no_delay(true), ignored);
  if (tls != nullptr) {
    m_tls.emplace(m_tcp, *tls);
  }
}

Task<void> Connection::Run() {
  if (!co_await Handshake()) {
    co_return;
  }
  for (bool more = true; more;) {
    more = co_await AwaitRequest();
    if (more) {
      more = co_await Serve();
    }
  }
  co_await Close();
}

void Connection::Stop() {
  m_stopping = true;
  m_tcp.cancel();
  m_pause.cancel();
  if (m_exchange.reply.stream) {
    m_exchange.reply.stream->End();
  }
}

Task<bool> Connection::Handshake() {
  if (!m_tls) {
    co_return true;
  }
  Error error;
  m_tcp.expires_after(m_patience.head);
  co_await m_tls->async_handshake(asio::ssl::stream_base::server,
                                  redirect_error(use_awaitable, error));
  if (error) {
    m_exchange.reply.note.text =
        "TLS handshake failed: " + (m_stopping ? "stopped" : error.message());
    co_await m_backend.Finished(std::move(m_exchange));
  }
  co_return !error;
}

Task<bool> Connection::AwaitRequest() {
  if (m_input.size() == 0) {
    m_input = boost::beast::flat_buffer();
    m_tcp.expires_after(m_patience.idle);
    Error error;
    co_return co_await Receive(kFirstPiece, error) > 0;
  }
  co_return !m_stopping;
}

// One request and its answer. False: it was the last one.
Task<bool> Connection::Serve() {
  m_exchange = Exchange();
  m_parser.emplace(m_exchange.call);
  co_await ReadHead();
  Body body(*this);
  m_exchange.reply = co_await Answer(body);
  body.Release();
  const bool closing = !m_parser->is_done() || m_parser->RefusalStatus() != 0 || m_stopping ||
                       !m_parser->keep_alive();
  if (!m_backend.IsMonitor(m_exchange.call)) {
    co_await Pause(std::chrono::milliseconds(m_backend.Settings().delay));
    m_untilCut = m_backend.Settings().cutAfter;
  }
  m_exchange.status = m_broken ? 0 : m_exchange.reply.status;
  co_await Send(closing);
  m_parser.reset();
  co_await m_backend.Finished(std::move(m_exchange));
  co_return !closing && !m_broken;
}

Task<void> Connection::ReadHead() {
  m_tcp.expires_after(m_patience.head);
  while (!m_parser->is_header_done() && m_parser->RefusalStatus() == 0) {
    const auto data = m_input.data();
    m_input.consume(m_parser->Take({static_cast<const char*>(data.data()), data.size()}));
    if (m_parser->is_header_done() || m_parser->RefusalStatus() != 0) {
      break;
    }
    Error error;
    if (co_await Receive(kHeadPiece, error) == 0) {
      const bool late = error == boost::beast::error::timeout;
      m_parser->Refuse(late ? 408 : 400, late ? "the head took too long" : "malformed request");
    }
  }
  const auto& socket = m_tcp.socket();
  Error ignored;
  Call& call = m_exchange.call;
  call.authority = boost::lexical_cast<std::string>(socket.local_endpoint(ignored));
  call.client = boost::lexical_cast<std::string>(socket.remote_endpoint(ignored));
  call.tls = m_tls.has_value();
  call.clientSubject = m_tls ? ClientSubject(m_tls->native_handle()) : "";
}

Task<Reply> Connection::Answer(Body& body) {
  if (m_parser->RefusalStatus() != 0) {
    co_return Problem(m_parser->RefusalStatus(), m_parser->Refusal());
  }
  std::string failure;
  try {
    co_return co_await m_backend.Handle(m_exchange.call, body);
  } catch (const std::exception& thrown) {
    failure = thrown.what();
  }
  co_return Problem(500, failure);
}

Task<void> Connection::Send(bool closing) {
  Reply& reply = m_exchange.reply;
  const bool old = m_parser->get().version() == 10;
  const bool chunked = reply.stream && !reply.length && !old;
  if (!IsBodyless(reply.status)) {
    reply.headers.push_back({"Content-Type", reply.contentType});
    if (chunked) {
      reply.headers.push_back({"Transfer-Encoding", "chunked"});
    } else if (!reply.stream || reply.length) {
      reply.headers.push_back(
          {"Content-Length", std::to_string(reply.length.value_or(reply.body.size()))});
    }
  }
  if (closing) {
    reply.headers.push_back({"Connection", "close"});
  }
  http::response<http::empty_body> head;
  head.result(static_cast<unsigned>(reply.status));
  for (const HeaderField& field : reply.headers) {
    head.insert(field.name, field.value);
  }
  std::ostringstream text;
  text << head.base();
  const bool withBody = m_exchange.call.method != "HEAD" && !IsBodyless(reply.status);
  if (withBody) {
    text << reply.body;
  }
  const bool sent = co_await Write(text.view());
  if (sent && withBody && reply.stream) {
    try {
      const bool whole = co_await SendStream(*reply.stream, chunked);
      m_broken = m_broken || !whole;
    } catch (const std::exception& failure) {
      m_broken = true;  // what was announced cannot be kept
      Backend::Complain(failure.what());
    }
  }
}

Task<bool> Connection::SendStream(BodySource& stream, bool chunked) {
  for (;;) {
    const std::string_view piece = co_await stream.Next();
    std::ostringstream frame;
    if (chunked) {
      frame << std::hex << piece.size() << "\r\n" << piece << "\r\n";
    }
    const std::string_view bytes = chunked ? frame.view() : piece;
    const bool sent = (!m_stopping || piece.empty()) && (bytes.empty() || co_await Write(bytes));
    if (!sent || piece.empty()) {
      co_return sent;
    }
  }
}

Task<void> Connection::Pause(std::chrono::milliseconds time) {
  if (!m_stopping && time > time.zero()) {
    Error stopped;
    m_pause.expires_after(time);
    co_await m_pause.async_wait(redirect_error(use_awaitable, stopped));
  }
}

// Ends the connection so that the peer gets to read what was written: says goodbye, then throws
// away what still comes in, for a short time only. Closing a socket with unread input resets the
// connection, and a reset throws away answers that the peer has not read yet.
Task<void> Connection::Close() {
  Error error;
  m_tcp.expires_after(m_patience.farewell);
  if (m_tls && !m_broken) {
    co_await m_tls->async_shutdown(redirect_error(use_awaitable, error));
  }
  m_tcp.socket().shutdown(asio::ip::tcp::socket::shutdown_send, error);
  m_tls.reset();
  std::array<char, 4096> rest;
  for (error = {}; !error && !m_stopping;) {
    co_await m_tcp.async_read_some(asio::buffer(rest), redirect_error(use_awaitable, error));
  }
}

// Reads up to `most` bytes more; 0 at the end, when the time is up or with the back end's end.
Task<std::size_t> Connection::Receive(std::size_t most, Error& error) {
  if (m_broken || m_stopping) {
    co_return 0;
  }
  const auto room = m_input.prepare(most);
  std::size_t count = 0;
  if (m_tls) {
    count = co_await m_tls->async_read_some(room, redirect_error(use_awaitable, error));
  } else {
    count = co_await m_tcp.async_read_some(room, redirect_error(use_awaitable, error));
  }
  m_input.commit(count);
  m_broken = error == boost::beast::error::timeout;
  co_return count;
}

// Writes all of `bytes`, or up to the cut.
Task<bool> Connection::Write(std::string_view bytes) {
  if (m_broken) {
    co_return false;
  }
  if (m_untilCut) {
    bytes = bytes.substr(
        0, static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), *m_untilCut)));
    *m_untilCut -= bytes.size();
  }
  m_tcp.expires_after(m_stopping ? m_patience.farewell : m_patience.answer);
  Error error;
  const auto buffer = asio::buffer(bytes);
  std::size_t count = 0;
  if (m_tls) {
    count = co_await asio::async_write(*m_tls, buffer, redirect_error(use_awaitable, error));
  } else {
    count = co_await asio::async_write(m_tcp, buffer, redirect_error(use_awaitable, error));
  }
  m_exchange.bytesOut += count;
  m_broken = error || (m_untilCut && *m_untilCut == 0);
  co_return !m_broken;
}
