// One connection: input and output, then requests, then the steps of scripts.

#include "wire/WireSession.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <utility>

#include "wire/Socket.h"

namespace lumtest {

namespace {

constexpr std::size_t kBuffer = 64 << 10;

// Thrown where the connection is at its end.
struct Ended {};

std::string SubjectOf(SSL* tls) {
  X509* certificate = SSL_get0_peer_certificate(tls);
  if (certificate == nullptr) {
    return "";
  }
  const std::unique_ptr<BIO, decltype(&BIO_free)> text(BIO_new(BIO_s_mem()), &BIO_free);
  X509_NAME_print_ex(text.get(), X509_get_subject_name(certificate), 0, XN_FLAG_RFC2253);
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(text.get(), &bytes);
  return std::string(bytes, static_cast<std::size_t>(size));
}

std::string Sha256Of(EVP_MD_CTX* context) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  EVP_DigestFinal_ex(context, digest, &size);
  std::string text;
  for (unsigned int i = 0; i < size; ++i) {
    text += "0123456789abcdef"[digest[i] >> 4];
    text += "0123456789abcdef"[digest[i] & 15];
  }
  return text;
}

}  // namespace

WireSession::WireSession(WireServerState& server, int socket, std::size_t number,
                         WireConnection connection)
    : m_server(server), m_socket(socket), m_number(number), m_connection(std::move(connection)) {
  // Each piece of a script is to leave at once.
  const int on = 1;
  setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void WireSession::Run() {
  try {
    Serve();
  } catch (const Ended&) {
  }
  if (m_inRequest && m_request.state == WireState::kReceiving) {
    if (m_request.head.empty()) {
      m_request.head = m_in;
    }
    EndRequest(WireState::kAborted);
  }
  m_tls.reset();
  close(m_socket);
  m_server.Finish(m_number, m_connection);
}

// The first cause counts.
void WireSession::Leave(WireEnd end) {
  if (m_connection.end == WireEnd::kOpen) {
    m_connection.end = end;
  }
  throw Ended();
}

// Waits until the socket is ready for `events` or in error.
void WireSession::Await(short events) {
  pollfd waiting[] = {{m_server.stop.Descriptor(), POLLIN, 0}, {m_socket, events, 0}};
  poll(waiting, 2, -1);
  if (waiting[0].revents != 0) {
    Leave(WireEnd::kByServer);
  }
}

// After a call that gave `result` and was to do what `events` stand for: waits for what it needs.
void WireSession::AwaitMore(ssize_t result, short events) {
  const int error = errno;
  const int tlsNeeds =
      m_tls != nullptr ? SSL_get_error(m_tls.get(), static_cast<int>(result)) : SSL_ERROR_NONE;
  if (tlsNeeds == SSL_ERROR_WANT_READ || tlsNeeds == SSL_ERROR_WANT_WRITE) {
    Await(tlsNeeds == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT);
  } else if (m_tls == nullptr && result < 0 && error == EAGAIN) {
    Await(events);
  } else {
    Leave(error == ECONNRESET || error == EPIPE ? WireEnd::kReset : WireEnd::kByClient);
  }
}

void WireSession::Handshake() {
  m_tls.reset(SSL_new(m_server.tls.get()));
  SSL_set_fd(m_tls.get(), m_socket);
  for (int result = 0; (result = SSL_accept(m_tls.get())) != 1; ERR_clear_error()) {
    if (SSL_get_error(m_tls.get(), result) != SSL_ERROR_WANT_READ) {
      Close();  // the client is to read the alert, not to be cut off by a reset
    }
    Await(POLLIN);
  }
}

// Reads at least one byte.
std::size_t WireSession::Read(char* bytes, std::size_t size) {
  while (true) {
    ERR_clear_error();
    errno = 0;
    const ssize_t got = m_tls != nullptr ? SSL_read(m_tls.get(), bytes, static_cast<int>(size))
                                         : recv(m_socket, bytes, size, 0);
    if (got > 0) {
      m_connection.bytesReceived += static_cast<std::uint64_t>(got);
      return static_cast<std::size_t>(got);
    }
    AwaitMore(got, POLLIN);
  }
}

void WireSession::Write(const std::string& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    ERR_clear_error();
    errno = 0;
    const char* const rest = bytes.data() + done;
    const std::size_t size = std::min(bytes.size() - done, kBuffer);
    const ssize_t sent = m_tls != nullptr ? SSL_write(m_tls.get(), rest, static_cast<int>(size))
                                          : send(m_socket, rest, size, MSG_NOSIGNAL);
    if (sent > 0) {
      done += static_cast<std::size_t>(sent);
    } else {
      AwaitMore(sent, POLLOUT);
    }
  }
}

void WireSession::WriteBeneathTls(const std::string& bytes) {
  if (send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) {
    Leave(WireEnd::kReset);
  }
}

void WireSession::Serve() {
  const std::optional<WireReply> early = m_server.TakeScript(/*ofConnection=*/true);
  if (m_server.tls != nullptr) {
    Handshake();
  }
  if (early) {
    Play(*early);
  }
  if (m_inRequest) {
    Advance(kNoLimit);
  }
  while (true) {
    BeginRequest();
    const std::optional<WireReply> reply = m_server.TakeScript(/*ofConnection=*/false);
    const WireStart start = reply ? reply->Start() : m_server.HandlerStart();
    Advance(start == WireStart::kBytes ? reply->StartBytes() : kNoLimit,
            /*headOnly=*/start != WireStart::kBytes);
    if (start == WireStart::kBody && m_request.state == WireState::kReceiving) {
      if (m_request.Header("Expect") == "100-continue") {
        Write(WireContinue());
      }
      Advance(kNoLimit);
    }
    Play(reply ? *reply : m_server.Handle(m_request));
    Advance(kNoLimit);
  }
}

// Waits for the first byte of a request. Only that byte is read, so that a script can say how many
// more may be.
void WireSession::BeginRequest() {
  if (m_in.empty()) {
    char first = 0;
    Read(&first, 1);
    m_in = first;
  }
  m_inRequest = true;
  m_requestNumber = m_server.NewRequest();
  m_request = WireRequest();
  if (m_tls != nullptr) {
    m_request.tls = true;
    m_request.clientSubject = SubjectOf(m_tls.get());
    const char* const name = SSL_get_servername(m_tls.get(), TLSEXT_NAMETYPE_host_name);
    m_request.serverName = name != nullptr ? name : "";
  }
  m_taken = 0;
  EVP_DigestInit_ex(m_digest.get(), EVP_sha256(), nullptr);
  m_server.Publish(m_requestNumber, m_request);
}

void WireSession::ReadMore(std::uint64_t count) {
  const std::uint64_t there = m_inRequest ? m_taken + m_in.size() : 0;
  if (!m_inRequest) {
    BeginRequest();
  }
  Advance(count == kNoLimit ? kNoLimit : there + count);
}

void WireSession::Advance(std::uint64_t limit, bool headOnly) {
  std::string buffer;
  while (true) {
    Parse();
    const std::uint64_t there = m_taken + m_in.size();
    if (m_request.state == WireState::kComplete || there >= limit ||
        (headOnly && !m_request.head.empty())) {
      return;
    }
    buffer.resize(kBuffer);
    const std::uint64_t most = std::min<std::uint64_t>(limit - there, kBuffer);
    m_in.append(buffer, 0, Read(buffer.data(), static_cast<std::size_t>(most)));
  }
}

// Takes from m_in what it can.
void WireSession::Parse() {
  if (m_request.state == WireState::kComplete || (m_request.head.empty() && !TakeHead())) {
    return;
  }
  if (m_chunked) {
    TakeChunks();
    return;
  }
  const std::size_t size = static_cast<std::size_t>(std::min<std::uint64_t>(m_left, m_in.size()));
  TakeBody(0, size, size);
  m_left -= size;
  if (m_left == 0) {
    EndRequest(WireState::kComplete);
  }
}

bool WireSession::TakeHead() {
  const std::size_t end = m_in.find("\r\n\r\n");
  if (end == std::string::npos) {
    return false;
  }
  m_request.head = m_in.substr(0, end + 4);
  m_in.erase(0, end + 4);
  m_taken = end + 4;
  const std::string& head = m_request.head;
  const std::size_t lineEnd = head.find("\r\n");
  // A target with blanks in it stays whole: everything between the first and the last blank.
  const std::size_t first = std::min(head.find(' '), lineEnd);
  const std::size_t last = std::max(head.rfind(' ', lineEnd), first + 1);
  m_request.method = head.substr(0, first);
  m_request.target = head.substr(first + 1, last - first - 1);
  for (std::size_t start = lineEnd + 2; start < end;) {
    const std::size_t next = head.find("\r\n", start);
    m_request.headerLines.push_back(head.substr(start, next - start));
    start = next + 2;
  }
  m_chunked = m_request.Header("Transfer-Encoding") == "chunked";
  const bool counted = m_request.HasHeader("Content-Length");
  m_left = counted ? NumberIn(m_request.Header("Content-Length"), 10) : 0;
  m_server.Publish(m_requestNumber, m_request);
  return true;
}

void WireSession::TakeChunks() {
  while (m_in.find("\r\n") != std::string::npos) {
    const std::size_t line = m_in.find("\r\n");
    const auto size = static_cast<std::size_t>(NumberIn(m_in, 16));
    const std::size_t whole = line + 2 + size + 2;
    if (m_in.size() < whole) {
      return;
    }
    TakeBody(line + 2, size, whole);
    if (size == 0) {
      EndRequest(WireState::kComplete);
      return;
    }
  }
}

// Makes `size` bytes of m_in part of the body, and drops everything up to `end`.
void WireSession::TakeBody(std::size_t begin, std::size_t size, std::size_t end) {
  const std::size_t most = m_server.options.keptBodyBytes;
  m_request.body.append(m_in, begin, std::min(size, most - std::min(most, m_request.body.size())));
  m_request.bodyBytes += size;
  EVP_DigestUpdate(m_digest.get(), m_in.data() + begin, size);
  m_in.erase(0, end);
  m_taken += end;
}

// The number at the beginning of `text`. What has none there is no request, and nothing to answer.
std::uint64_t WireSession::NumberIn(const std::string& text, int base) {
  std::uint64_t number = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), number, base).ec != std::errc()) {
    Leave(WireEnd::kByServer);
  }
  return number;
}

void WireSession::EndRequest(WireState state) {
  m_request.state = state;
  if (state == WireState::kComplete) {
    m_request.bodySha256 = Sha256Of(m_digest.get());
  }
  m_server.Publish(m_requestNumber, m_request);
}

void WireSession::Play(const WireReply& reply) {
  for (const WireReply::Step& step : reply.Steps()) {
    step(*this);
  }
}

// A client that closes its side while the server does nothing else is gone.
void WireSession::Hold(std::chrono::milliseconds time, int released) {
  pollfd waiting[] = {
      {m_server.stop.Descriptor(), POLLIN, 0}, {m_socket, POLLRDHUP, 0}, {released, POLLIN, 0}};
  while (poll(waiting, 3, static_cast<int>(time.count())) < 0) {
  }
  if (waiting[0].revents != 0) {
    Leave(WireEnd::kByServer);
  }
  if (waiting[1].revents != 0) {
    Leave(WireEnd::kByClient);
  }
}

void WireSession::WaitAt(const WireGate& gate) {
  gate.m_state->reached.Set();
  Hold(kForEver, gate.m_state->opened.Descriptor());
}

void WireSession::PassOn(std::uint16_t port, std::uint64_t clientBytes, std::uint64_t serverBytes) {
  const SocketAddress address("127.0.0.1", port);
  const FileDescriptor server(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (connect(server.Get(), address.Get(), address.length) != 0) {
    Leave(WireEnd::kByServer);
  }
  const int on = 1;
  setsockopt(server.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  struct Direction {
    int from;
    int to;
    std::uint64_t limit;
    std::uint64_t& passed;
  };
  Direction directions[] = {{m_socket, server.Get(), clientBytes, m_connection.bytesReceived},
                            {server.Get(), m_socket, serverBytes, m_connection.bytesPassedBack}};
  char bytes[16384];
  while (directions[0].passed < clientBytes && directions[1].passed < serverBytes) {
    pollfd waiting[] = {
        {m_socket, POLLIN, 0}, {server.Get(), POLLIN, 0}, {m_server.stop.Descriptor(), POLLIN, 0}};
    poll(waiting, 3, -1);
    if (waiting[2].revents != 0) {
      Leave(WireEnd::kByServer);
    }
    Direction& ready = directions[waiting[0].revents != 0 ? 0 : 1];
    const std::uint64_t most = std::min<std::uint64_t>(sizeof bytes, ready.limit - ready.passed);
    const ssize_t got = recv(ready.from, bytes, static_cast<std::size_t>(most), 0);
    if (got <= 0 || send(ready.to, bytes, static_cast<std::size_t>(got), MSG_NOSIGNAL) != got) {
      Leave(WireEnd::kByClient);
    }
    ready.passed += static_cast<std::uint64_t>(got);
  }
  Reset();
}

void WireSession::HalfClose() {
  if (m_tls != nullptr) {
    ERR_clear_error();
    SSL_shutdown(m_tls.get());
  }
  shutdown(m_socket, SHUT_WR);
}

void WireSession::Close() {
  HalfClose();
  char ignored[4096];
  ssize_t got = 0;
  while ((got = recv(m_socket, ignored, sizeof ignored, 0)) > 0 || (got < 0 && errno == EAGAIN)) {
    if (got < 0) {
      Await(POLLIN);
    }
  }
  Leave(WireEnd::kByServer);
}

void WireSession::Reset() {
  // A reset throws away what has not left yet, which the kernel says only to who asks.
  constexpr int kRounds = 2000;
  int waiting = 1;
  for (int i = 0; i < kRounds && ioctl(m_socket, SIOCOUTQNSD, &waiting) == 0 && waiting > 0; ++i) {
    if (m_server.stop.Wait(std::chrono::milliseconds(1))) {
      break;
    }
  }
  const linger atOnce = {1, 0};
  setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  Leave(WireEnd::kByServer);
}

void WireSession::Alert() {
  // OpenSSL sends alerts of its own accord only: a record that does not decrypt makes it.
  std::string record("\x17\x03\x03\x00\x28", 5);
  record.append(40, '\x5a');
  SSL_set0_rbio(m_tls.get(), BIO_new_mem_buf(record.data(), static_cast<int>(record.size())));
  char ignored = 0;
  ERR_clear_error();
  SSL_read(m_tls.get(), &ignored, 1);
  Close();
}

}  // namespace lumtest
