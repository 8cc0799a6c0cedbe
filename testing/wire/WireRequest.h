// What the wire server keeps of each request and of each connection.

#ifndef LUM_TESTING_WIRE_WIREREQUEST_H
#define LUM_TESTING_WIRE_WIREREQUEST_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace lumtest {

// Where a request stands.
enum class WireState {
  kReceiving,  // the head or the body is still coming in
  kComplete,   // head and body have arrived whole
  kAborted,    // it ended before it was whole; `error` says how
};

// One request. Records are plain values: a copy is yours to use from any thread.
struct WireRequest {
  std::size_t number = 0;      // 0 for the server's first request, in the order of first bytes
  std::size_t connection = 0;  // number of the WireConnection that it came on
  WireState state = WireState::kReceiving;
  std::string error;  // why it is kAborted

  // The bytes as they came in. Set when the head is whole, or with what there was when the request
  // was aborted; the body's when it is whole or aborted.
  std::string head;     // request line and header lines with the blank line that ends them
  std::string rawBody;  // everything after the head, chunk sizes and trailer included

  // The head taken apart. Empty until the head is whole.
  std::string method;
  std::string target;                    // as sent, neither decoded nor normalised
  std::string version;                   // "HTTP/1.1"
  std::vector<std::string> headerLines;  // in order, as sent, each without its CR LF

  // The body without chunk framing. Beyond WireOptions::keptBodyBytes a body is only counted and
  // hashed: `body` and `rawBody` then hold its beginning, and `bodyKept` is false.
  std::string body;
  bool bodyKept = true;
  std::uint64_t bodyBytes = 0;
  std::string bodySha256;               // hexadecimal; set once the request is kComplete
  std::vector<std::size_t> chunkSizes;  // sizes of the body's chunks, the last empty one left out

  // Where it came from.
  std::string peerAddress;
  std::uint16_t peerPort = 0;
  bool tls = false;
  std::string clientSubject;  // the client certificate's subject, RFC 2253 form; "" without one
  std::string serverName;     // the TLS server name asked for (SNI); "" without one

  // `head` and `rawBody` together: the request as the wire carried it.
  std::string Raw() const { return head + rawBody; }

  // The values of all header lines called `name`, in order. Case does not matter in `name`; blanks
  // around a value are dropped.
  std::vector<std::string> HeaderValues(const std::string& name) const;

  // The first of them, or "".
  std::string Header(const std::string& name) const;

  bool HasHeader(const std::string& name) const { return !HeaderValues(name).empty(); }

  // Fills method, target, version and headerLines from `head`. False, and those left empty, when
  // the head is no HTTP/1 request.
  bool ParseHead();
};

// How a connection came to its end.
enum class WireEnd {
  kOpen,      // it has not
  kByClient,  // the client closed its side
  kReset,     // the client reset it
  kByServer,  // a reply of the script ended it, or the server stopped
  kNoTls,     // the TLS handshake failed; `tlsError` says how
};

struct WireConnection {
  std::size_t number = 0;  // 0 for the first, in the order of acceptance
  std::string peerAddress;
  std::uint16_t peerPort = 0;
  std::string localAddress;  // the address that the client connected to
  std::uint16_t localPort = 0;

  bool tls = false;           // the handshake is done
  std::string tlsVersion;     // "TLSv1.3"
  std::string serverName;     // as in WireRequest; known even if the handshake fails later
  std::string clientSubject;  // as in WireRequest
  std::string tlsError;       // OpenSSL's reason for a failed handshake

  WireEnd end = WireEnd::kOpen;
  std::uint64_t bytesReceived = 0;  // decrypted; set when the connection has ended
  std::uint64_t bytesSent = 0;      // likewise; interim answers ("100 Continue") included
};

}  // namespace lumtest

#endif  // LUM_TESTING_WIRE_WIREREQUEST_H
