// The server: listens, hands connections to sessions, keeps the records.

#include "wire/WireServer.h"

#include <openssl/err.h>
#include <poll.h>
#include <strings.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <stdexcept>
#include <utility>

#include "support/Signals.h"
#include "tls/TlsMaterial.h"
#include "wire/Socket.h"
#include "wire/WireSession.h"

namespace lumtest {

namespace {

using TlsContext = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;

void Require(bool good, const std::string& what) {
  if (!good) {
    const char* const reason = ERR_reason_error_string(ERR_peek_last_error());
    throw std::runtime_error("TLS, " + what + ": " + (reason != nullptr ? reason : "no reason"));
  }
}

TlsContext MakeTlsContext(const WireTls& tls) {
  ERR_clear_error();
  TlsContext context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
  SSL_CTX* const raw = context.get();
  Require(SSL_CTX_use_certificate_chain_file(raw, tls.certificate.c_str()) == 1, tls.certificate);
  Require(SSL_CTX_use_PrivateKey_file(raw, tls.key.c_str(), SSL_FILETYPE_PEM) == 1, tls.key);
  SSL_CTX_set_max_proto_version(raw, tls.maxVersion);
  if (tls.clientCertificate != WireTls::ClientCertificate::kNone) {
    Require(SSL_CTX_load_verify_locations(raw, tls.clientCa.c_str(), nullptr) == 1, tls.clientCa);
    const bool required = tls.clientCertificate == WireTls::ClientCertificate::kRequired;
    SSL_CTX_set_verify(raw, SSL_VERIFY_PEER | (required ? SSL_VERIFY_FAIL_IF_NO_PEER_CERT : 0),
                       nullptr);
  }
  // Every connection has a handshake of its own, and nothing is sent that no script asked for.
  SSL_CTX_set_session_cache_mode(raw, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_options(raw, SSL_OP_NO_TICKET);
  SSL_CTX_set_num_tickets(raw, 0);
  SSL_CTX_set_mode(raw, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  return context;
}

}  // namespace

std::vector<std::string> WireRequest::HeaderValues(const std::string& name) const {
  std::vector<std::string> values;
  for (const std::string& line : headerLines) {
    if (line.size() > name.size() && line[name.size()] == ':' &&
        strncasecmp(line.c_str(), name.c_str(), name.size()) == 0) {
      std::string value = line.substr(name.size() + 1);
      value.erase(0, value.find_first_not_of(" \t"));
      value.erase(value.find_last_not_of(" \t") + 1);
      values.push_back(value);
    }
  }
  return values;
}

std::string WireRequest::Header(const std::string& name) const {
  const std::vector<std::string> values = HeaderValues(name);
  return values.empty() ? "" : values.front();
}

WireEvent::WireEvent() : m_descriptor(eventfd(0, EFD_CLOEXEC)) {
  if (!m_descriptor) {
    throw SystemError("eventfd");
  }
}

void WireEvent::Set() const {
  eventfd_write(Descriptor(), 1);  // nobody ever reads it back
}

bool WireEvent::Wait(std::chrono::milliseconds deadline) const {
  pollfd waiting = {Descriptor(), POLLIN, 0};
  return poll(&waiting, 1, static_cast<int>(deadline.count())) == 1;
}

WireGate::WireGate() : m_state(std::make_shared<State>()) {}

void WireGate::Release() {
  m_state->opened.Set();
}

bool WireGate::WaitReached(std::chrono::milliseconds deadline) const {
  return m_state->reached.Wait(deadline);
}

WireTls MakeWireTls(const TlsMaterial& material, WireTls::ClientCertificate clientCertificate) {
  WireTls tls;
  tls.certificate = material.serverCertificate;
  tls.key = material.serverKey;
  tls.clientCertificate = clientCertificate;
  tls.clientCa = material.caCertificate;
  return tls;
}

WireServerState::WireServerState(WireOptions wanted) : options(std::move(wanted)) {
  if (options.tls) {
    tls = MakeTlsContext(*options.tls);
  }
  SocketAddress bound;
  listener = BoundSocket(options.address, &bound);
  port = bound.Port();
  if (options.receiveBuffer > 0) {
    // Accepted connections inherit it; later would be too late for the window that is announced.
    setsockopt(listener.Get(), SOL_SOCKET, SO_RCVBUF, &options.receiveBuffer,
               sizeof options.receiveBuffer);
  }
  if (listen(listener.Get(), SOMAXCONN) != 0) {
    throw SystemError("listen on " + options.address);
  }
}

void WireServerState::Accept() {
  while (true) {
    pollfd waiting[] = {{stop.Descriptor(), POLLIN, 0}, {listener.Get(), POLLIN, 0}};
    poll(waiting, 2, -1);
    JoinFinished();
    if (waiting[0].revents != 0) {
      return;
    }
    if (waiting[1].revents == 0) {
      continue;  // a change of the process's user interrupts every thread
    }
    SocketAddress peer;
    const int socket =
        accept4(listener.Get(), peer.Get(), &peer.length, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (socket < 0) {
      // Out of descriptors, say: the connection stays in the queue, to be had a little later.
      stop.Wait(std::chrono::milliseconds(10));
      continue;
    }
    SocketAddress local;
    getsockname(socket, local.Get(), &local.length);
    WireConnection connection;
    connection.peerAddress = peer.Address();
    connection.localAddress = local.Address();
    const std::lock_guard<std::mutex> lock(mutex);
    const std::size_t number = connectionsBegun++;
    connections[number] = connection;
    ++connectionsOpen;
    workers.emplace(number, std::thread([this, socket, number, connection] {
                      WireSession(*this, socket, number, connection).Run();
                    }));
  }
}

void WireServerState::JoinFinished() {
  std::vector<std::thread> done;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    for (const std::size_t number : finished) {
      done.push_back(std::move(workers.at(number)));
      workers.erase(number);
    }
    finished.clear();
  }
  for (std::thread& thread : done) {
    thread.join();
  }
}

// The next script, if it is one for a connection or one for a request as asked for.
std::optional<WireReply> WireServerState::TakeScript(bool ofConnection) {
  const std::lock_guard<std::mutex> lock(mutex);
  if (scripts.empty() || (scripts.front().Start() == WireStart::kHandshake) != ofConnection) {
    return std::nullopt;
  }
  WireReply script = std::move(scripts.front());
  scripts.pop_front();
  return script;
}

WireStart WireServerState::HandlerStart() const {
  const std::lock_guard<std::mutex> lock(mutex);
  return handlerStart;
}

WireReply WireServerState::Handle(const WireRequest& request) const {
  std::function<WireReply(const WireRequest&)> call;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    call = handler;
  }
  return call ? call(request) : StatusReply(501, "no answer is scripted for this request\n");
}

std::size_t WireServerState::NewRequest() {
  const std::lock_guard<std::mutex> lock(mutex);
  return requestsBegun++;
}

void WireServerState::Publish(std::size_t number, const WireRequest& request) {
  const std::lock_guard<std::mutex> lock(mutex);
  requests[number] = request;
  requestsEnded += request.state != WireState::kReceiving ? 1 : 0;
  changed.notify_all();
}

void WireServerState::Finish(std::size_t number, const WireConnection& connection) {
  const std::lock_guard<std::mutex> lock(mutex);
  connections[number] = connection;
  --connectionsOpen;
  finished.push_back(number);
  changed.notify_all();
}

WireServer::WireServer(WireOptions options)
    : m_state(std::make_unique<WireServerState>(std::move(options))) {
  // Threads of the server get no signals: the program's own handlers run on its own threads, and a
  // client that is gone shows as EPIPE.
  const AllSignalsBlocked blocked;
  WireServerState* const state = m_state.get();
  m_state->acceptor = std::thread([state] { state->Accept(); });
}

WireServer::~WireServer() {
  Stop();
}

void WireServer::Stop() {
  if (!m_state->acceptor.joinable()) {
    return;
  }
  m_state->stop.Set();
  m_state->acceptor.join();
  // With the acceptor gone nobody adds workers any more.
  for (auto& worker : m_state->workers) {
    worker.second.join();
  }
  m_state->workers.clear();
  m_state->listener = FileDescriptor();
}

std::uint16_t WireServer::Port() const {
  return m_state->port;
}

std::string WireServer::Url(const std::string& path) const {
  return UrlWithHost(m_state->options.address, path);
}

std::string WireServer::UrlWithHost(const std::string& host, const std::string& path) const {
  return MakeUrl(m_state->tls ? "https" : "http", host, m_state->port, path);
}

WireServer& WireServer::Script(WireReply reply) {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  m_state->scripts.push_back(std::move(reply));
  return *this;
}

void WireServer::SetHandler(std::function<WireReply(const WireRequest&)> handler, WireStart start) {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  m_state->handler = std::move(handler);
  m_state->handlerStart = start;
}

std::vector<WireRequest> WireServer::Requests() const {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  std::vector<WireRequest> all;
  for (const auto& request : m_state->requests) {
    all.push_back(request.second);
  }
  return all;
}

std::size_t WireServer::RequestCount() const {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  return m_state->requestsBegun;
}

WireRequest WireServer::Request(std::size_t number) const {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  return m_state->requests.at(number);
}

std::vector<WireConnection> WireServer::Connections() const {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  std::vector<WireConnection> all;
  for (const auto& connection : m_state->connections) {
    all.push_back(connection.second);
  }
  return all;
}

void WireServer::Forget() {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  m_state->requests.clear();
  m_state->connections.clear();
}

bool WireServer::WaitForRequests(std::size_t count, std::chrono::milliseconds deadline) const {
  std::unique_lock<std::mutex> lock(m_state->mutex);
  return m_state->changed.wait_for(lock, deadline, [&] { return m_state->requestsEnded >= count; });
}

bool WireServer::WaitIdle(std::chrono::milliseconds deadline) const {
  std::unique_lock<std::mutex> lock(m_state->mutex);
  return m_state->changed.wait_for(lock, deadline, [&] { return m_state->connectionsOpen == 0; });
}

}  // namespace lumtest
