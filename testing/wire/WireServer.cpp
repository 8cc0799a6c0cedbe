// The server: listens, hands connections to sessions, keeps the records.

#include "wire/WireServer.h"

#include <openssl/err.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include "support/Signals.h"
#include "tls/TlsMaterial.h"
#include "wire/Socket.h"
#include "wire/WireServerState.h"
#include "wire/WireSession.h"

namespace lumtest {

namespace {

void RequireTls(bool good, const std::string& what) {
  if (!good) {
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    ERR_clear_error();
    throw std::runtime_error("TLS: " + what +
                             (reason != nullptr ? ": " + std::string(reason) : ""));
  }
}

SSL_CTX* MakeTlsContext(const WireTls& tls) {
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_server_method()),
                                                            &SSL_CTX_free);
  RequireTls(context != nullptr, "context");
  SSL_CTX* raw = context.get();
  RequireTls(SSL_CTX_use_certificate_chain_file(raw, tls.certificate.c_str()) == 1,
             "certificate " + tls.certificate);
  RequireTls(SSL_CTX_use_PrivateKey_file(raw, tls.key.c_str(), SSL_FILETYPE_PEM) == 1,
             "key " + tls.key);
  RequireTls(SSL_CTX_check_private_key(raw) == 1, "key " + tls.key + " for its certificate");
  RequireTls(SSL_CTX_set_max_proto_version(raw, tls.maxVersion) == 1, "version");
  if (tls.clientCertificate != WireTls::ClientCertificate::kNone) {
    RequireTls(SSL_CTX_load_verify_locations(raw, tls.clientCa.c_str(), nullptr) == 1,
               "client CA " + tls.clientCa);
    const bool required = tls.clientCertificate == WireTls::ClientCertificate::kRequired;
    SSL_CTX_set_verify(raw, SSL_VERIFY_PEER | (required ? SSL_VERIFY_FAIL_IF_NO_PEER_CERT : 0),
                       nullptr);
  }
  // Every connection has a handshake of its own, and nothing is sent that no script asked for.
  SSL_CTX_set_session_cache_mode(raw, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_options(raw, SSL_OP_NO_TICKET);
  RequireTls(SSL_CTX_set_num_tickets(raw, 0) == 1, "tickets");
  SSL_CTX_set_mode(raw, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  return context.release();
}

}  // namespace

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
    tls.reset(MakeTlsContext(*options.tls));
  }
  SocketAddress bound;
  listener = BoundSocket(options.address, options.port, &bound);
  port = bound.Port();
  if (options.receiveBuffer > 0) {
    // Accepted connections inherit it; later would be too late for the window that is announced.
    setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &options.receiveBuffer,
               sizeof options.receiveBuffer);
  }
  stop = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (stop < 0 || listen(listener, SOMAXCONN) != 0) {
    const std::runtime_error error = SystemError("listen on " + options.address);
    close(listener);
    if (stop >= 0) {
      close(stop);
    }
    throw error;
  }
}

WireServerState::~WireServerState() {
  if (listener >= 0) {
    close(listener);
  }
  close(stop);
}

void WireServerState::Accept() {
  while (true) {
    pollfd waiting[] = {{stop, POLLIN, 0}, {listener, POLLIN, 0}};
    if (poll(waiting, 2, -1) < 0 && errno != EINTR) {
      return;
    }
    JoinFinished();
    if (waiting[0].revents != 0) {
      return;
    }
    if (waiting[1].revents == 0) {
      continue;
    }
    SocketAddress peer;
    const int socket = accept4(listener, peer.Get(), &peer.length, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (socket < 0) {
      // Out of descriptors, say: the connection stays in the queue, to be had a little later.
      poll(waiting, 1, 10);
      continue;
    }
    SocketAddress local;
    getsockname(socket, local.Get(), &local.length);
    const std::lock_guard<std::mutex> lock(mutex);
    WireConnection connection;
    connection.number = connectionsBegun++;
    connection.peerAddress = peer.Address();
    connection.peerPort = peer.Port();
    connection.localAddress = local.Address();
    connection.localPort = local.Port();
    connections.emplace(connection.number, connection);
    ++connectionsOpen;
    workers.emplace(connection.number, std::thread([this, socket, connection] {
                      WireSession(*this, socket, connection).Run();
                    }));
    changed.notify_all();
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

std::optional<WireReply> WireServerState::TakeConnectionScript() {
  const std::lock_guard<std::mutex> lock(mutex);
  if (scripts.empty() || scripts.front().Start() > WireStart::kHandshake) {
    return std::nullopt;
  }
  WireReply script = std::move(scripts.front());
  scripts.pop_front();
  return script;
}

std::optional<WireReply> WireServerState::TakeRequestScript() {
  const std::lock_guard<std::mutex> lock(mutex);
  const auto found = std::find_if(scripts.begin(), scripts.end(), [](const WireReply& script) {
    return script.Start() > WireStart::kHandshake;
  });
  if (found == scripts.end()) {
    return std::nullopt;
  }
  WireReply script = std::move(*found);
  scripts.erase(found);
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

void WireServerState::Publish(const WireRequest& request) {
  const auto headDone = [](const WireRequest& record) {
    return !record.head.empty() || record.state == WireState::kAborted;
  };
  const auto ended = [](const WireRequest& record) {
    return record.state != WireState::kReceiving;
  };
  const std::lock_guard<std::mutex> lock(mutex);
  WireRequest& record = requests[request.number];
  headsSeen += !headDone(record) && headDone(request) ? 1 : 0;
  requestsEnded += !ended(record) && ended(request) ? 1 : 0;
  record = request;
  changed.notify_all();
}

void WireServerState::Publish(const WireConnection& connection) {
  const std::lock_guard<std::mutex> lock(mutex);
  connections[connection.number] = connection;
  if (connection.end != WireEnd::kOpen) {
    --connectionsOpen;
  }
  changed.notify_all();
}

void WireServerState::Finished(std::size_t connection) {
  const std::lock_guard<std::mutex> lock(mutex);
  finished.push_back(connection);
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
  eventfd_write(m_state->stop, 1);
  m_state->acceptor.join();
  // With the acceptor gone nobody adds workers any more.
  for (auto& worker : m_state->workers) {
    worker.second.join();
  }
  m_state->workers.clear();
  close(m_state->listener);
  m_state->listener = -1;
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
  if (start < WireStart::kHead) {
    throw std::runtime_error("a handler needs the request's head");
  }
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

void WireServer::ForgetEnded() {
  const std::lock_guard<std::mutex> lock(m_state->mutex);
  for (auto i = m_state->requests.begin(); i != m_state->requests.end();) {
    i = i->second.state == WireState::kReceiving ? std::next(i) : m_state->requests.erase(i);
  }
  for (auto i = m_state->connections.begin(); i != m_state->connections.end();) {
    i = i->second.end == WireEnd::kOpen ? std::next(i) : m_state->connections.erase(i);
  }
}

bool WireServer::WaitForRequests(std::size_t count, std::chrono::milliseconds deadline) const {
  std::unique_lock<std::mutex> lock(m_state->mutex);
  return m_state->changed.wait_for(lock, deadline, [&] { return m_state->requestsEnded >= count; });
}

bool WireServer::WaitForHeads(std::size_t count, std::chrono::milliseconds deadline) const {
  std::unique_lock<std::mutex> lock(m_state->mutex);
  return m_state->changed.wait_for(lock, deadline, [&] { return m_state->headsSeen >= count; });
}

bool WireServer::WaitForConnections(std::size_t count, std::chrono::milliseconds deadline) const {
  std::unique_lock<std::mutex> lock(m_state->mutex);
  return m_state->changed.wait_for(lock, deadline,
                                   [&] { return m_state->connectionsBegun >= count; });
}

bool WireServer::WaitIdle(std::chrono::milliseconds deadline) const {
  std::unique_lock<std::mutex> lock(m_state->mutex);
  return m_state->changed.wait_for(lock, deadline, [&] { return m_state->connectionsOpen == 0; });
}

}  // namespace lumtest
