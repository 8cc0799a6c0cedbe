// A blocking client over TCP or TLS.

#include "wire/WireClient.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include "support/Signals.h"
#include "wire/Socket.h"

namespace lumtest {

namespace {

std::string TlsReason() {
  const char* reason = ERR_reason_error_string(ERR_peek_error());
  return reason != nullptr ? reason : "the connection was closed";
}

}  // namespace

struct WireClient::Tls {
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context{nullptr, &SSL_CTX_free};
  std::unique_ptr<SSL, decltype(&SSL_free)> connection{nullptr, &SSL_free};
};

WireClient::WireClient(const std::string& address, std::uint16_t port) {
  const SocketAddress server(address, port);
  m_socket = socket(server.Family(), SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (m_socket < 0) {
    throw SystemError("socket");
  }
  const timeval deadline = {30, 0};
  setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
  setsockopt(m_socket, SOL_SOCKET, SO_SNDTIMEO, &deadline, sizeof deadline);
  if (connect(m_socket, server.Get(), server.length) != 0) {
    const std::runtime_error error = SystemError("connect to " + address);
    close(m_socket);
    throw error;
  }
}

WireClient::~WireClient() {
  Close();
}

void WireClient::StartTls(const WireClientTls& tls) {
  const PipeSignalBlocked blocked;
  auto state = std::make_unique<Tls>();
  ERR_clear_error();
  state->context.reset(SSL_CTX_new(TLS_client_method()));
  SSL_CTX* const context = state->context.get();
  bool good = context != nullptr;
  if (good && !tls.ca.empty()) {
    good = SSL_CTX_load_verify_locations(context, tls.ca.c_str(), nullptr) == 1;
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
  }
  if (good && !tls.certificate.empty()) {
    good = SSL_CTX_use_certificate_chain_file(context, tls.certificate.c_str()) == 1 &&
           SSL_CTX_use_PrivateKey_file(context, tls.key.c_str(), SSL_FILETYPE_PEM) == 1;
  }
  if (good) {
    state->connection.reset(SSL_new(context));
    SSL* const connection = state->connection.get();
    good = connection != nullptr && SSL_set_fd(connection, m_socket) == 1 &&
           (tls.serverName.empty() ||
            SSL_set_tlsext_host_name(connection, tls.serverName.c_str()) == 1) &&
           SSL_connect(connection) == 1;
  }
  if (!good) {
    m_tlsError = TlsReason();
    throw std::runtime_error("TLS: " + m_tlsError);
  }
  m_tls = std::move(state);
}

bool WireClient::Send(const std::string& bytes) {
  const PipeSignalBlocked blocked;
  for (std::size_t done = 0; done < bytes.size();) {
    ssize_t sent;
    if (m_tls != nullptr) {
      ERR_clear_error();
      const std::size_t piece = std::min<std::size_t>(bytes.size() - done, 1 << 20);
      sent = SSL_write(m_tls->connection.get(), bytes.data() + done, static_cast<int>(piece));
    } else {
      sent = send(m_socket, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
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
    got = SSL_read(m_tls->connection.get(), bytes, sizeof bytes);
    const int systemError = errno;
    if (got <= 0) {
      switch (SSL_get_error(m_tls->connection.get(), static_cast<int>(got))) {
        case SSL_ERROR_ZERO_RETURN:
          m_tlsClosed = true;
          break;
        case SSL_ERROR_SYSCALL:
          m_reset = systemError == ECONNRESET;
          break;
        case SSL_ERROR_WANT_READ:
          throw std::runtime_error("nothing comes in");
        default:
          m_tlsError = TlsReason();
          break;
      }
      return false;
    }
  } else {
    got = recv(m_socket, bytes, sizeof bytes, 0);
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
    SSL_shutdown(m_tls->connection.get());
  }
  shutdown(m_socket, SHUT_WR);
}

void WireClient::Close(bool reset) {
  if (m_socket < 0) {
    return;
  }
  if (reset) {
    const linger atOnce = {1, 0};
    setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  } else if (m_tls != nullptr) {
    const PipeSignalBlocked blocked;
    SSL_shutdown(m_tls->connection.get());
  }
  m_tls.reset();
  close(m_socket);
  m_socket = -1;
}

std::uint16_t WireClient::LocalPort() const {
  SocketAddress local;
  getsockname(m_socket, local.Get(), &local.length);
  return local.Port();
}

}  // namespace lumtest
