// A loopback HTTP server for tests: keeps the raw bytes of every request and answers with scripted
// bytes, over plain TCP or TLS.

#ifndef LUM_TESTING_WIRE_WIRESERVER_H
#define LUM_TESTING_WIRE_WIRESERVER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "wire/WireReply.h"
#include "wire/WireRequest.h"

namespace lumtools {
struct TlsMaterial;
}

namespace lumtest {

// TLS of a server. Paths are those of PEM files, read once when the server starts.
struct WireTls {
  enum class ClientCertificate {
    kNone,      // not asked for
    kOptional,  // asked for; a client without one may go on, one with a bad one may not
    kRequired,  // the handshake fails without a good one
  };

  std::string certificate;  // the server's, any intermediate ones after it
  std::string key;          // its private key, not encrypted
  ClientCertificate clientCertificate = ClientCertificate::kNone;
  std::string clientCa;  // CA that client certificates are checked against

  // The highest version offered, as OpenSSL's TLS1_2_VERSION and the like; 0: no limit. With TLS
  // 1.3 a client learns only after its handshake that its certificate was refused; with 1.2 the
  // handshake itself fails.
  int maxVersion = 0;
};

using lumtools::TlsMaterial;

// TLS with the good server certificate of `material`, checking clients against its CA.
WireTls MakeWireTls(const TlsMaterial& material, WireTls::ClientCertificate clientCertificate =
                                                     WireTls::ClientCertificate::kNone);

struct WireOptions {
  std::string address = "127.0.0.1";  // or another of 127.0.0.0/8, or "::1"
  std::optional<WireTls> tls;

  // Bytes kept of a request's body. What is beyond them is counted and hashed, then forgotten.
  std::size_t keptBodyBytes = 16 << 20;

  // SO_RCVBUF of the connections in bytes; 0: the kernel's default. A small one lets a client's
  // sending come to a halt soon when the server does not read.
  int receiveBuffer = 0;
};

struct WireServerState;

// The server runs from construction to Stop() or destruction, one background thread to accept and
// one for each connection. Each first byte of a request takes the next script; without one left,
// the handler answers; without a handler, a status 501 that says so.
//
// Every member may be called from any thread, but Stop and the destructor from one only.
class WireServer {
 public:
  // Throws std::runtime_error with the system's or OpenSSL's reason.
  explicit WireServer(WireOptions options = {});

  // Stops.
  ~WireServer();

  WireServer(const WireServer&) = delete;
  WireServer& operator=(const WireServer&) = delete;

  std::uint16_t Port() const;

  // "http://127.0.0.1:PORT/path", or https. `path` begins with a slash.
  std::string Url(const std::string& path = "/") const;

  // The same with another host name in front of the port.
  std::string UrlWithHost(const std::string& host, const std::string& path = "/") const;

  // Adds a script after those already there.
  WireServer& Script(WireReply reply);

  // What answers when no script is left. It is called on the connections' threads, several at a
  // time, and must not throw. `start` is kBody, or kHead for a handler that decides before the body
  // has been asked for.
  void SetHandler(std::function<WireReply(const WireRequest&)> handler,
                  WireStart start = WireStart::kBody);

  // --- What came in, as of now.

  std::vector<WireRequest> Requests() const;
  std::size_t RequestCount() const;

  // Request `number`; throws std::out_of_range when there is none (yet).
  WireRequest Request(std::size_t number) const;

  std::vector<WireConnection> Connections() const;

  // Forgets the requests and connections that have come in, for runs of very many. Numbers of later
  // ones go on as if nothing had been forgotten.
  void Forget();

  // --- Conditions. True as soon as it holds, false when `deadline` has passed first. Counts are
  // those since the server's start.

  // `count` requests are whole (or aborted).
  bool WaitForRequests(std::size_t count, std::chrono::milliseconds deadline = kWireDeadline) const;

  // Of the connections accepted so far none is open, nor its descriptor.
  bool WaitIdle(std::chrono::milliseconds deadline = kWireDeadline) const;

  // Closes everything, held and stalled connections too, and joins the threads. What came in stays
  // readable. May be called again.
  void Stop();

 private:
  std::unique_ptr<WireServerState> m_state;
};

}  // namespace lumtest

#endif  // LUM_TESTING_WIRE_WIRESERVER_H
