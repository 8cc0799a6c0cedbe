// One connection: input and output, then requests, then scripts.

#include "wire/WireSession.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/x509.h>
#include <poll.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <utility>

#include "wire/WireGate.h"

namespace lumtest {

namespace {

constexpr std::size_t kBuffer = 64 << 10;
constexpr std::size_t kLargestHead = 64 << 20;

// Reads a whole number in `base` from the beginning of `text`; false without one.
bool ReadNumber(const std::string& text, int base, std::uint64_t* number) {
  const std::from_chars_result result =
      std::from_chars(text.data(), text.data() + text.size(), *number, base);
  return result.ec == std::errc();
}

// A comma-separated list of tokens, any case.
bool HasToken(const std::vector<std::string>& values, const char* token) {
  for (const std::string& value : values) {
    for (std::size_t start = 0; start <= value.size();) {
      const std::size_t comma = std::min(value.find(',', start), value.size());
      const std::size_t first = std::min(value.find_first_not_of(" \t", start), comma);
      std::string word = value.substr(first, comma - first);
      word.erase(word.find_last_not_of(" \t") + 1);
      if (strcasecmp(word.c_str(), token) == 0) {
        return true;
      }
      start = comma + 1;
    }
  }
  return false;
}

std::string SubjectOf(SSL* tls) {
  X509* certificate = SSL_get0_peer_certificate(tls);
  BIO* text = BIO_new(BIO_s_mem());
  std::string subject;
  if (certificate != nullptr && text != nullptr &&
      X509_NAME_print_ex(text, X509_get_subject_name(certificate), 0, XN_FLAG_RFC2253) >= 0) {
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(text, &bytes);
    subject.assign(bytes, static_cast<std::size_t>(size));
  }
  BIO_free(text);
  return subject;
}

}  // namespace

WireSession::WireSession(WireServerState& server, int socket, WireConnection connection)
    : m_server(server), m_socket(socket), m_connection(std::move(connection)) {
  // Each piece of a script is to leave at once.
  const int on = 1;
  setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

WireSession::~WireSession() {
  if (m_socket >= 0) {
    close(m_socket);
  }
}

void WireSession::Run() {
  Serve();
  if (m_phase != Phase::kNone && m_request.state == WireState::kReceiving) {
    AbortRequest(m_connection.end == WireEnd::kByServer ? "ended by the script or by Stop"
                                                        : "ended by the client");
  }
  End(WireEnd::kByServer);
  m_tls.reset();
  if (m_socket >= 0) {
    close(m_socket);
    m_socket = -1;
  }
  m_server.Publish(m_connection);
  m_server.Finished(m_connection.number);
}

// Waits until the socket is ready for `events` (or in error), `extra` is readable, the time is up
// or the server stops.
WireSession::Wake WireSession::Poll(short events, int extra, std::chrono::milliseconds timeout) {
  const auto end = std::chrono::steady_clock::now() + timeout;
  while (true) {
    pollfd waiting[] = {{m_server.stop, POLLIN, 0}, {m_socket, events, 0}, {extra, POLLIN, 0}};
    int left = -1;
    if (timeout.count() >= 0) {
      left = static_cast<int>(std::max<std::int64_t>(
          0, std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now())
                 .count()));
    }
    const int ready = poll(waiting, 3, left);
    if (waiting[0].revents != 0) {
      return Wake::kStop;
    }
    if (ready == 0) {
      return Wake::kTimeout;
    }
    if (ready > 0) {
      return waiting[2].revents != 0 ? Wake::kExtra : Wake::kSocket;
    }
  }
}

bool WireSession::PollFor(short events) {
  if (Poll(events) == Wake::kStop) {
    End(WireEnd::kByServer);
    return false;
  }
  return true;
}

// After an OpenSSL call that gave `result`: waits for what the call needs. False when the
// connection is at its end.
bool WireSession::AwaitTls(int result) {
  const int systemError = errno;
  switch (SSL_get_error(m_tls.get(), result)) {
    case SSL_ERROR_WANT_READ:
      return PollFor(POLLIN);
    case SSL_ERROR_WANT_WRITE:
      return PollFor(POLLOUT);
    case SSL_ERROR_SYSCALL:
      End(systemError == ECONNRESET || systemError == EPIPE ? WireEnd::kReset : WireEnd::kByClient);
      return false;
    default:
      End(WireEnd::kByClient);
      return false;
  }
}

bool WireSession::Handshake() {
  m_tls.reset(SSL_new(m_server.tls.get()));
  if (m_tls == nullptr || SSL_set_fd(m_tls.get(), m_socket) != 1) {
    End(WireEnd::kByServer);
    return false;
  }
  while (true) {
    ERR_clear_error();
    const int result = SSL_accept(m_tls.get());
    if (const char* name = SSL_get_servername(m_tls.get(), TLSEXT_NAMETYPE_host_name)) {
      m_connection.serverName = name;
    }
    if (result == 1) {
      break;
    }
    const unsigned long error = ERR_peek_error();
    if (AwaitTls(result)) {
      continue;
    }
    if (m_connection.end == WireEnd::kByServer) {
      return false;  // the server stops
    }
    const char* reason = error != 0 ? ERR_reason_error_string(error) : nullptr;
    m_connection.tlsError = reason != nullptr ? reason : "the connection was closed";
    m_connection.end = WireEnd::kNoTls;
    // The client is to read the alert, not to be cut off by a reset.
    Close();
    return false;
  }
  m_connection.tls = true;
  m_connection.tlsVersion = SSL_get_version(m_tls.get());
  m_connection.clientSubject = SubjectOf(m_tls.get());
  m_server.Publish(m_connection);
  return true;
}

// Reads at least one byte; 0 when the connection is at its end.
std::size_t WireSession::Read(char* bytes, std::size_t size) {
  while (true) {
    if (m_tls != nullptr) {
      ERR_clear_error();
      errno = 0;
      const int got = SSL_read(m_tls.get(), bytes, static_cast<int>(size));
      if (got > 0) {
        m_connection.bytesReceived += static_cast<std::uint64_t>(got);
        return static_cast<std::size_t>(got);
      }
      if (!AwaitTls(got)) {
        return 0;
      }
      continue;
    }
    const ssize_t got = recv(m_socket, bytes, size, 0);
    if (got > 0) {
      m_connection.bytesReceived += static_cast<std::uint64_t>(got);
      return static_cast<std::size_t>(got);
    }
    if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
      End(got == 0 ? WireEnd::kByClient : WireEnd::kReset);
      return 0;
    }
    if (!PollFor(POLLIN)) {
      return 0;
    }
  }
}

bool WireSession::Write(const char* bytes, std::size_t size) {
  if (m_tls == nullptr) {
    return WriteBeneathTls(bytes, size);
  }
  while (size > 0) {
    ERR_clear_error();
    errno = 0;
    const int sent = SSL_write(m_tls.get(), bytes, static_cast<int>(std::min(size, kBuffer)));
    if (sent > 0) {
      m_connection.bytesSent += static_cast<std::uint64_t>(sent);
      bytes += sent;
      size -= static_cast<std::size_t>(sent);
    } else if (!AwaitTls(sent)) {
      return false;
    }
  }
  return true;
}

bool WireSession::WriteBeneathTls(const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t sent = send(m_socket, bytes, size, MSG_NOSIGNAL);
    if (sent >= 0) {
      m_connection.bytesSent += static_cast<std::uint64_t>(sent);
      bytes += sent;
      size -= static_cast<std::size_t>(sent);
    } else if (errno != EAGAIN && errno != EINTR) {
      End(WireEnd::kReset);
      return false;
    } else if (!PollFor(POLLOUT)) {
      return false;
    }
  }
  return true;
}

// The first cause counts.
void WireSession::End(WireEnd end) {
  if (m_connection.end == WireEnd::kOpen) {
    m_connection.end = end;
  }
}

void WireSession::Serve() {
  const std::optional<WireReply> early = m_server.TakeConnectionScript();
  if (early && early->Start() == WireStart::kAccept && !Play(*early)) {
    return;
  }
  if (m_server.tls != nullptr && !Handshake()) {
    return;
  }
  if (early && early->Start() == WireStart::kHandshake && !Play(*early)) {
    return;
  }
  if (m_phase != Phase::kNone && Advance(kNoLimit) == Advanced::kGone) {
    return;
  }
  while (ServeRequest()) {
  }
}

// Reads one request and answers it.
bool WireSession::ServeRequest() {
  if (!BeginRequest()) {
    return false;
  }
  std::optional<WireReply> reply = m_server.TakeRequestScript();
  const WireStart start = reply ? reply->Start() : m_server.HandlerStart();
  m_continueWanted = reply ? reply->WantsContinue() : start == WireStart::kBody;
  const Advanced advanced = Advance(start == WireStart::kBytes ? reply->StartBytes() : kNoLimit,
                                    start == WireStart::kHead);
  if (advanced == Advanced::kGone) {
    return false;
  }
  if (!reply) {
    reply = m_server.Handle(m_request);
  }
  if (!Play(*reply) || Advance(kNoLimit) == Advanced::kGone) {
    return false;
  }
  const std::vector<std::string> connection = m_request.HeaderValues("Connection");
  if (HasToken(connection, "close") ||
      (m_request.version == "HTTP/1.0" && !HasToken(connection, "keep-alive"))) {
    Close();
    return false;
  }
  return true;
}

// Waits for the first byte of a request. Only that byte is read, so that a script can say how many
// more may be.
bool WireSession::BeginRequest() {
  if (m_in.empty()) {
    char first = 0;
    if (Read(&first, 1) == 0) {
      return false;
    }
    m_in = first;
  }
  m_request = WireRequest();
  m_request.number = m_server.NewRequest();
  m_request.connection = m_connection.number;
  m_request.peerAddress = m_connection.peerAddress;
  m_request.peerPort = m_connection.peerPort;
  m_request.tls = m_connection.tls;
  m_request.clientSubject = m_connection.clientSubject;
  m_request.serverName = m_connection.serverName;
  m_phase = Phase::kHead;
  m_taken = 0;
  m_searched = 0;
  m_continueDue = false;
  m_continueWanted = false;
  m_bodyDigest = Sha256();
  m_server.Publish(m_request);
  return true;
}

WireSession::Advanced WireSession::Advance(std::uint64_t limit, bool headOnly) {
  std::string buffer;
  while (true) {
    Parse();
    if (m_request.state == WireState::kAborted) {
      Write(StatusReply(400, m_request.error + "\n").Steps().front().bytes);
      Close();
      return Advanced::kGone;
    }
    const std::uint64_t there = m_taken + m_in.size();
    if (m_phase == Phase::kComplete || there >= limit || (headOnly && m_phase > Phase::kHead)) {
      return Advanced::kThere;
    }
    SendContinueIfDue();
    buffer.resize(kBuffer);
    const std::size_t got = Read(
        buffer.data(), static_cast<std::size_t>(std::min<std::uint64_t>(limit - there, kBuffer)));
    if (got == 0) {
      return Advanced::kGone;
    }
    m_in.append(buffer, 0, got);
  }
}

void WireSession::SendContinueIfDue() {
  if (m_continueDue && m_continueWanted) {
    m_continueDue = false;
    Write(WireContinue());  // an error shows in the read that follows
  }
}

// Takes from m_in what it can.
void WireSession::Parse() {
  if (m_phase == Phase::kHead) {
    const std::size_t end = m_in.find("\r\n\r\n", m_searched);
    if (end == std::string::npos) {
      m_searched = m_in.size() < 3 ? 0 : m_in.size() - 3;
      if (m_in.size() > kLargestHead) {
        AbortRequest("the head does not end");
      }
      return;
    }
    m_request.head = m_in.substr(0, end + 4);
    m_in.erase(0, end + 4);
    m_taken = end + 4;
    if (!m_request.ParseHead()) {
      AbortRequest("no HTTP/1 request");
      return;
    }
    BeginBody();
    if (m_phase == Phase::kComplete) {
      return;
    }
    m_server.Publish(m_request);
  }
  ParseBody();
}

void WireSession::BeginBody() {
  m_continueDue = HasToken(m_request.HeaderValues("Expect"), "100-continue");
  if (HasToken(m_request.HeaderValues("Transfer-Encoding"), "chunked")) {
    m_phase = Phase::kChunkSize;
    return;
  }
  m_phase = Phase::kLength;
  m_left = 0;
  if (m_request.HasHeader("Content-Length") &&
      !ReadNumber(m_request.Header("Content-Length"), 10, &m_left)) {
    AbortRequest("no number in Content-Length");
  } else if (m_left == 0) {
    CompleteRequest();
  }
}

void WireSession::ParseBody() {
  std::string line;
  while (m_request.state == WireState::kReceiving) {
    switch (m_phase) {
      case Phase::kLength:
      case Phase::kChunk: {
        if (m_in.empty()) {
          return;
        }
        TakeBody(static_cast<std::size_t>(std::min<std::uint64_t>(m_left, m_in.size())));
        if (m_left == 0 && m_phase == Phase::kLength) {
          CompleteRequest();
        } else if (m_left == 0) {
          m_phase = Phase::kChunkEnd;
        }
        break;
      }
      case Phase::kChunkSize:
        if (!TakeLine(&line)) {
          return;
        }
        if (!ReadNumber(line, 16, &m_left)) {
          AbortRequest("no chunk size where one is due");
        } else if (m_left == 0) {
          m_phase = Phase::kTrailer;
        } else {
          m_request.chunkSizes.push_back(static_cast<std::size_t>(m_left));
          m_phase = Phase::kChunk;
        }
        break;
      case Phase::kChunkEnd:
        if (!TakeLine(&line)) {
          return;
        }
        if (!line.empty()) {
          AbortRequest("a chunk is longer than its size");
        }
        m_phase = Phase::kChunkSize;
        break;
      case Phase::kTrailer:
        if (!TakeLine(&line)) {
          return;
        }
        if (line.empty()) {
          CompleteRequest();
        }
        break;
      default:
        return;
    }
  }
}

// Moves `size` bytes from m_in into the body.
void WireSession::TakeBody(std::size_t size) {
  const std::size_t most = m_server.options.keptBodyBytes;
  const std::size_t kept =
      std::min(size, most - std::min<std::size_t>(most, m_request.body.size()));
  m_request.body.append(m_in, 0, kept);
  m_request.bodyKept = m_request.bodyKept && kept == size;
  m_request.bodyBytes += size;
  m_bodyDigest.Update(m_in.data(), size);
  m_left -= size;
  const std::size_t rawKept =
      std::min(size, most - std::min<std::size_t>(most, m_request.rawBody.size()));
  m_request.rawBody.append(m_in, 0, rawKept);
  m_in.erase(0, size);
  m_taken += size;
}

// Takes a line of chunk framing, without its end, from m_in.
bool WireSession::TakeLine(std::string* line) {
  const std::size_t end = m_in.find("\r\n");
  if (end == std::string::npos) {
    if (m_in.size() > kBuffer) {
      AbortRequest("a line of chunk framing does not end");
    }
    return false;
  }
  *line = m_in.substr(0, end);
  if (m_request.bodyKept) {
    m_request.rawBody.append(m_in, 0, end + 2);
  }
  m_in.erase(0, end + 2);
  m_taken += end + 2;
  return true;
}

void WireSession::CompleteRequest() {
  m_phase = Phase::kComplete;
  m_request.state = WireState::kComplete;
  m_request.bodySha256 = m_bodyDigest.Finish();
  m_server.Publish(m_request);
}

void WireSession::AbortRequest(const std::string& error) {
  m_request.state = WireState::kAborted;
  m_request.error = error;
  if (m_phase == Phase::kHead && m_request.head.empty()) {
    m_request.head = m_in;
  }
  m_server.Publish(m_request);
}

bool WireSession::Play(const WireReply& reply) {
  for (const WireReply::Step& step : reply.Steps()) {
    if (!PlayStep(step)) {
      return false;
    }
  }
  return true;
}

bool WireSession::PlayStep(const WireReply::Step& step) {
  using Kind = WireReply::Step::Kind;
  switch (step.kind) {
    case Kind::kSend:
      return Write(step.bytes);
    case Kind::kSendBeneathTls:
      return WriteBeneathTls(step.bytes.data(), step.bytes.size());
    case Kind::kRepeat:
      return Repeat(step.bytes, step.count);
    case Kind::kGenerated:
      return SendGenerated(step.count);
    case Kind::kDrip:
      return Drip(step.bytes, static_cast<std::size_t>(step.count), step.pause);
    case Kind::kWait:
      return WaitAt(*step.gate);
    case Kind::kPause:
      return Pause(step.pause);
    case Kind::kReadBytes: {
      const std::uint64_t there = m_phase == Phase::kNone ? 0 : m_taken + m_in.size();
      return (m_phase != Phase::kNone || BeginRequest()) &&
             Advance(there + step.count) == Advanced::kThere;
    }
    case Kind::kReadBody:
      return (m_phase != Phase::kNone || BeginRequest()) && Advance(kNoLimit) == Advanced::kThere;
    case Kind::kCall:
      step.call();
      return true;
    case Kind::kHalfClose:
      HalfClose();
      return true;
    case Kind::kClose:
      End(WireEnd::kByServer);
      Close();
      return false;
    case Kind::kDrop:
      End(WireEnd::kByServer);
      return false;
    case Kind::kReset:
      End(WireEnd::kByServer);
      Reset();
      return false;
    case Kind::kStall:
      Stall();
      return false;
    case Kind::kAlert:
      End(WireEnd::kByServer);
      Alert();
      return false;
  }
  return false;
}

bool WireSession::Repeat(const std::string& bytes, std::uint64_t times) {
  if (bytes.empty()) {
    return true;
  }
  // Small pieces go out many at a time.
  const std::size_t together = std::max<std::size_t>(1, kBuffer / bytes.size());
  std::string block;
  for (std::size_t i = 0; i < together && i < times; ++i) {
    block += bytes;
  }
  while (times > 0) {
    const std::uint64_t now = std::min<std::uint64_t>(times, together);
    if (!Write(block.data(), static_cast<std::size_t>(now) * bytes.size())) {
      return false;
    }
    times -= times == WireReply::kForever ? 0 : now;
  }
  return true;
}

bool WireSession::SendGenerated(std::uint64_t count) {
  const std::string block = GeneratedBytes(0, kBuffer);
  for (std::uint64_t offset = 0; offset < count;) {
    // Whole periods of the pattern, so that each block continues the one before.
    const std::size_t size = kBuffer / kGeneratedPeriod * kGeneratedPeriod;
    const std::uint64_t now = std::min<std::uint64_t>(count - offset, size);
    if (!Write(block.data(), static_cast<std::size_t>(now))) {
      return false;
    }
    offset += now;
  }
  return true;
}

bool WireSession::Drip(const std::string& bytes, std::size_t piece,
                       std::chrono::milliseconds pause) {
  piece = std::max<std::size_t>(1, piece);
  for (std::size_t offset = 0; offset < bytes.size(); offset += piece) {
    if (!Write(bytes.substr(offset, piece)) || !Pause(pause)) {
      return false;
    }
  }
  return true;
}

// A client that closes its side while the server does nothing else is gone.
bool WireSession::Pause(std::chrono::milliseconds duration) {
  const Wake wake = Poll(POLLRDHUP, -1, duration);
  if (wake != Wake::kTimeout) {
    End(wake == Wake::kStop ? WireEnd::kByServer : WireEnd::kByClient);
  }
  return wake == Wake::kTimeout;
}

bool WireSession::WaitAt(const WireGate& gate) {
  gate.m_state->Reach();
  const Wake wake = Poll(POLLRDHUP, gate.m_state->opened);
  if (wake != Wake::kExtra) {
    End(wake == Wake::kStop ? WireEnd::kByServer : WireEnd::kByClient);
  }
  return wake == Wake::kExtra;
}

void WireSession::Stall() {
  const Wake wake = Poll(POLLRDHUP);
  End(wake == Wake::kStop ? WireEnd::kByServer : WireEnd::kByClient);
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
  ssize_t got = 1;
  while (got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR))) {
    if (got < 0 && Poll(POLLIN) == Wake::kStop) {
      return;
    }
    got = recv(m_socket, ignored, sizeof ignored, 0);
  }
}

void WireSession::Reset() {
  // A reset throws away what has not left yet, which the kernel says only to who asks.
  constexpr int kRounds = 2000;
  int waiting = 1;
  for (int i = 0; i < kRounds && ioctl(m_socket, SIOCOUTQNSD, &waiting) == 0 && waiting > 0; ++i) {
    pollfd stop = {m_server.stop, POLLIN, 0};
    if (poll(&stop, 1, 1) > 0) {
      break;
    }
  }
  const linger atOnce = {1, 0};
  setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

void WireSession::Alert() {
  if (m_tls != nullptr) {
    // OpenSSL sends alerts of its own accord only: a record that does not decrypt makes it.
    std::string record("\x17\x03\x03\x00\x28", 5);
    record.append(40, '\x5a');
    BIO* input = BIO_new_mem_buf(record.data(), static_cast<int>(record.size()));
    SSL_set0_rbio(m_tls.get(), input);
    char ignored = 0;
    ERR_clear_error();
    SSL_read(m_tls.get(), &ignored, 1);
  }
  Close();
}

}  // namespace lumtest
