// A blocking client over TCP or TLS.

#include "wire/WireClient.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include "support/Signals.h"
#include "wire/Socket.h"

namespace lumtest {

WireClient::WireClient(const std::string& address, std::uint16_t port) {
  const SocketAddress server(address, port);
  m_socket = FileDescriptor(socket(server.Family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
  const timeval deadline = {30, 0};
  setsockopt(m_socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
  setsockopt(m_socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &deadline, sizeof deadline);
  if (connect(m_socket.Get(), server.Get(), server.length) != 0) {
    throw SystemError("connect to " + address);
  }
}

WireClient::~WireClient() {
  Close();
}

void WireClient::StartTls() {
  const PipeSignalBlocked blocked;
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()),
                                                                  &SSL_CTX_free);
  std::shared_ptr<SSL> connection(SSL_new(context.get()), &SSL_free);
  SSL_set_fd(connection.get(), m_socket.Get());
  if (SSL_connect(connection.get()) != 1) {
    throw std::runtime_error("there is no TLS");
  }
  m_tls = std::move(connection);
}

bool WireClient::Send(const std::string& bytes) {
  const PipeSignalBlocked blocked;
  for (std::size_t done = 0; done < bytes.size();) {
    ssize_t sent;
    if (m_tls != nullptr) {
      ERR_clear_error();
      const std::size_t piece = std::min<std::size_t>(bytes.size() - done, 1 << 20);
      sent = SSL_write(m_tls.get(), bytes.data() + done, static_cast<int>(piece));
    } else {
      sent = send(m_socket.Get(), bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    }
    if (sent <= 0) {
      if (m_tls == nullptr && errno == EAGAIN) {
        throw std::runtime_error("the server takes no more bytes");
      }
      return false;
    }
    done += static_cast<std::size_t>(sent);
  }
  return true;
}

bool WireClient::Fill() {
  char bytes[16 * 1024];
  ssize_t got;
  if (m_tls != nullptr) {
    const PipeSignalBlocked blocked;
    ERR_clear_error();
    errno = 0;
    got = SSL_read(m_tls.get(), bytes, sizeof bytes);
    const int systemError = errno;
    if (got <= 0) {
      switch (SSL_get_error(m_tls.get(), static_cast<int>(got))) {
        case SSL_ERROR_ZERO_RETURN:
          m_tlsClosed = true;
          break;
        case SSL_ERROR_SYSCALL:
          m_reset = systemError == ECONNRESET;
          break;
        case SSL_ERROR_WANT_READ:
          throw std::runtime_error("nothing comes in");
        default:
          break;
      }
      return false;
    }
  } else {
    got = recv(m_socket.Get(), bytes, sizeof bytes, 0);
    if (got < 0 && errno == EAGAIN) {
      throw std::runtime_error("nothing comes in");
    }
    if (got <= 0) {
      m_reset = got < 0 && errno == ECONNRESET;
      return false;
    }
  }
  m_in.append(bytes, static_cast<std::size_t>(got));
  return true;
}

std::string WireClient::ReadUntil(const std::string& marker) {
  std::size_t at = m_in.find(marker);
  while (at == std::string::npos && Fill()) {
    at = m_in.find(marker);
  }
  return ReadBytes(at == std::string::npos ? m_in.size() : at + marker.size());
}

std::string WireClient::ReadBytes(std::size_t size) {
  while (m_in.size() < size && Fill()) {
  }
  std::string bytes = m_in.substr(0, size);
  m_in.erase(0, bytes.size());
  return bytes;
}

std::string WireClient::ReadAll() {
  while (Fill()) {
  }
  return std::exchange(m_in, "");
}

void WireClient::HalfClose() {
  if (m_tls != nullptr) {
    const PipeSignalBlocked blocked;
    SSL_shutdown(m_tls.get());
  }
  shutdown(m_socket.Get(), SHUT_WR);
}

void WireClient::Close(bool reset) {
  if (reset) {
    const linger atOnce = {1, 0};
    setsockopt(m_socket.Get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  } else if (m_tls != nullptr) {
    const PipeSignalBlocked blocked;
    SSL_shutdown(m_tls.get());
  }
  m_tls.reset();
  m_socket = FileDescriptor();
}

}  // namespace lumtest
