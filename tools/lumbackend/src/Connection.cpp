// Socket and TLS input and output with waits that the end of the back end interrupts.
#include "Connection.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kProgressLimit(30'000);  // a peer that does nothing for so long is given up
constexpr milliseconds kFarewellLimit(2'000);   // for a peer that does not close its side
constexpr std::size_t kInputSize = 65536;       // bytes; four TLS records
constexpr std::size_t kLongestHead = 65536;     // bytes; more than any client of ours sends

// "ADDRESS" and port of one end of the socket.
bool Describe(const sockaddr_storage& address, std::string& ip, int& port) {
  char text[INET6_ADDRSTRLEN] = "";
  if (address.ss_family == AF_INET) {
    sockaddr_in v4 = {};
    std::memcpy(&v4, &address, sizeof v4);
    inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
    port = ntohs(v4.sin_port);
  } else if (address.ss_family == AF_INET6) {
    sockaddr_in6 v6 = {};
    std::memcpy(&v6, &address, sizeof v6);
    inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
    port = ntohs(v6.sin6_port);
  } else {
    return false;
  }
  ip = text;
  return true;
}

}  // namespace

Connection::Connection(FileDescriptor socket, int stop, SSL_CTX* context)
    : m_socket(std::move(socket)), m_stop(stop), m_input(kInputSize) {
  // Answers are small or come in large pieces; neither gains from being held back.
  const int on = 1;
  ::setsockopt(m_socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (context != nullptr) {
    m_ssl.reset(SSL_new(context));
    m_broken = !m_ssl || SSL_set_fd(m_ssl.get(), m_socket.Get()) != 1;
  }
}

bool Connection::Handshake(std::string& problem) {
  if (m_broken) {
    problem = TakeSslError();
    return false;
  }
  if (!m_ssl) {
    return true;
  }
  for (;;) {
    ERR_clear_error();
    const int result = SSL_accept(m_ssl.get());
    if (result == 1) {
      return true;
    }
    if (!WaitForSsl(result)) {
      problem = Stopping() ? "stopped" : TakeSslError();
      return false;
    }
  }
}

bool Connection::AwaitRequest(milliseconds limit) {
  if (m_broken) {
    return false;
  }
  if (m_inputStart < m_inputEnd || (m_ssl && SSL_pending(m_ssl.get()) > 0)) {
    return !Stopping();
  }
  return WaitFor(POLLIN, limit) == Wait::kReady && Fill();
}

void Connection::StartHead() {
  m_head.clear();
  m_keepHead = true;
  m_inQuery = false;
}

std::string Connection::TakeHead() {
  m_keepHead = false;
  return std::move(m_head);
}

void Connection::Pause(milliseconds time) const {
  WaitFor(0, time);
}

void Connection::Close() {
  // Closing a socket with unread input resets the connection, and a reset throws away answers that
  // the peer has not read yet.
  if (m_ssl && !m_broken) {
    ERR_clear_error();
    SSL_shutdown(m_ssl.get());
  }
  ::shutdown(m_socket.Get(), SHUT_WR);
  const auto end = steady_clock::now() + kFarewellLimit;
  for (auto now = steady_clock::now(); now < end; now = steady_clock::now()) {
    if (WaitFor(POLLIN, std::chrono::ceil<milliseconds>(end - now)) != Wait::kReady ||
        ::recv(m_socket.Get(), m_input.data(), m_input.size(), 0) <= 0) {
      break;
    }
  }
  m_broken = true;
}

bool Connection::Stopping() const {
  pollfd stop = {m_stop, POLLIN, 0};
  return ::poll(&stop, 1, 0) > 0;
}

std::string Connection::LocalAuthority() const {
  std::string ip;
  int port = 0;
  get_local_ip_and_port(ip, port);
  if (ip.find(':') != std::string::npos) {
    ip = "[" + ip + "]";
  }
  return ip + ":" + std::to_string(port);
}

ssize_t Connection::read(char* data, size_t size) {
  if (m_broken || (m_inputStart == m_inputEnd && !Fill())) {
    return -1;
  }
  const std::size_t count = std::min(size, m_inputEnd - m_inputStart);
  std::memcpy(data, m_input.data() + m_inputStart, count);
  m_inputStart += count;
  if (m_keepHead && m_head.size() + count > kLongestHead) {
    m_headTooLong = true;
    return -1;
  }
  Note(data, count);
  return static_cast<ssize_t>(count);
}

ssize_t Connection::write(const char* data, size_t size) {
  if (m_broken) {
    return -1;
  }
  std::size_t allowed = size;
  if (m_untilCut) {
    allowed = static_cast<std::size_t>(std::min<std::uint64_t>(size, *m_untilCut));
    *m_untilCut -= allowed;
  }
  for (std::size_t done = 0; done < allowed;) {
    const ssize_t sent = Send(data + done, allowed - done);
    if (sent <= 0) {
      m_broken = true;
      return -1;
    }
    done += static_cast<std::size_t>(sent);
    m_bytesOut += static_cast<std::uint64_t>(sent);
  }
  if (m_untilCut && *m_untilCut == 0) {
    m_broken = true;
    return -1;
  }
  return static_cast<ssize_t>(size);
}

void Connection::get_remote_ip_and_port(std::string& ip, int& port) const {
  sockaddr_storage address = {};
  socklen_t length = sizeof address;
  if (::getpeername(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), &length) == 0) {
    Describe(address, ip, port);
  }
}

void Connection::get_local_ip_and_port(std::string& ip, int& port) const {
  sockaddr_storage address = {};
  socklen_t length = sizeof address;
  if (::getsockname(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), &length) == 0) {
    Describe(address, ip, port);
  }
}

Connection::Wait Connection::WaitFor(short events, milliseconds limit) const {
  const auto end = steady_clock::now() + limit;
  for (;;) {
    // A negative descriptor is passed over: a pause waits for the end alone.
    pollfd ends[2] = {{m_stop, POLLIN, 0}, {events == 0 ? -1 : m_socket.Get(), events, 0}};
    const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
    const int ready = ::poll(ends, 2, static_cast<int>(std::max(left, milliseconds(0)).count()));
    if (ready < 0 && errno == EINTR) {
      continue;
    }
    if (ends[0].revents != 0) {
      return Wait::kStopped;
    }
    return ready > 0 ? Wait::kReady : Wait::kTimeout;
  }
}

bool Connection::WaitForSsl(int result) {
  switch (SSL_get_error(m_ssl.get(), result)) {
    case SSL_ERROR_WANT_READ:
      return WaitFor(POLLIN, kProgressLimit) == Wait::kReady;
    case SSL_ERROR_WANT_WRITE:
      return WaitFor(POLLOUT, kProgressLimit) == Wait::kReady;
    default:
      // The connection cannot be used again, not even for a goodbye.
      m_broken = true;
      return false;
  }
}

ssize_t Connection::Receive(char* data, std::size_t size) {
  for (;;) {
    if (m_ssl) {
      std::size_t count = 0;
      ERR_clear_error();
      const int result = SSL_read_ex(m_ssl.get(), data, size, &count);
      if (result == 1) {
        return static_cast<ssize_t>(count);
      }
      if (!WaitForSsl(result)) {
        return -1;
      }
      continue;
    }
    const ssize_t count = ::recv(m_socket.Get(), data, size, 0);
    if (count >= 0) {
      return count;
    }
    if (errno == EINTR) {
      continue;
    }
    if ((errno != EAGAIN && errno != EWOULDBLOCK) ||
        WaitFor(POLLIN, kProgressLimit) != Wait::kReady) {
      return -1;
    }
  }
}

ssize_t Connection::Send(const char* data, std::size_t size) {
  for (;;) {
    if (m_ssl) {
      std::size_t count = 0;
      ERR_clear_error();
      const int result = SSL_write_ex(m_ssl.get(), data, size, &count);
      if (result == 1) {
        return static_cast<ssize_t>(count);
      }
      if (!WaitForSsl(result)) {
        return -1;
      }
      continue;
    }
    const ssize_t count = ::send(m_socket.Get(), data, size, MSG_NOSIGNAL);
    if (count >= 0) {
      return count;
    }
    if (errno == EINTR) {
      continue;
    }
    if ((errno != EAGAIN && errno != EWOULDBLOCK) ||
        WaitFor(POLLOUT, kProgressLimit) != Wait::kReady) {
      return -1;
    }
  }
}

bool Connection::Fill() {
  if (Stopping()) {
    return false;
  }
  const ssize_t count = Receive(m_input.data(), m_input.size());
  if (count <= 0) {
    return false;
  }
  m_inputStart = 0;
  m_inputEnd = static_cast<std::size_t>(count);
  return true;
}

void Connection::Note(char* data, std::size_t count) {
  for (std::size_t i = count < m_tail.size() ? 0 : count - m_tail.size(); i < count; ++i) {
    std::rotate(m_tail.begin(), m_tail.begin() + 1, m_tail.end());
    m_tail.back() = data[i];
  }
  if (!m_keepHead) {
    return;
  }
  const bool requestLine = m_head.find('\n') == std::string::npos;
  m_head.append(data, count);
  // cpp-httplib refuses a query that holds another '?', which RFC 3986, section 3.4 allows. Its
  // reading of the target is not used, so it may see another character there.
  for (std::size_t i = 0; requestLine && i < count; ++i) {
    if (data[i] == '?' && std::exchange(m_inQuery, true)) {
      data[i] = '/';
    }
  }
}
