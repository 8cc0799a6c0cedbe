// What the wire server keeps of each request and of each connection.

#ifndef LUM_TESTING_WIRE_WIREREQUEST_H
#define LUM_TESTING_WIRE_WIREREQUEST_H

#include <cstdint>
#include <string>
#include <vector>

namespace lumtest {

// Where a request stands.
enum class WireState {
  kReceiving,  // the head or the body is still coming in
  kComplete,   // head and body have arrived whole
  kAborted,    // it ended before it was whole
};

// One request. Records are plain values: a copy is yours to use from any thread.
struct WireRequest {
  WireState state = WireState::kReceiving;

  // The bytes as they came in: request line and header lines with the blank line that ends them.
  // Set when the head is whole, or with what there was when the request was aborted.
  std::string head;

  // The head taken apart. Empty until the head is whole.
  std::string method;
  std::string target;                    // as sent, neither decoded nor normalised
  std::vector<std::string> headerLines;  // in order, as sent, each without its CR LF

  // The body without chunk framing, set when it is whole or aborted. Beyond
  // WireOptions::keptBodyBytes it is only counted and hashed.
  std::string body;
  std::uint64_t bodyBytes = 0;
  std::string bodySha256;  // hexadecimal; set once the request is kComplete

  bool tls = false;
  std::string clientSubject;  // the client certificate's subject, RFC 2253 form; "" without one
  std::string serverName;     // the TLS server name asked for (SNI); "" without one

  // The request as the wire carried it, unless its body was chunked.
  std::string Raw() const { return head + body; }

  // The values of all header lines called `name`, in order. Case does not matter in `name`; blanks
  // around a value are dropped.
  std::vector<std::string> HeaderValues(const std::string& name) const;

  // The first of them, or "".
  std::string Header(const std::string& name) const;

  bool HasHeader(const std::string& name) const { return !HeaderValues(name).empty(); }
};

// How a connection came to its end.
enum class WireEnd {
  kOpen,      // it has not
  kByClient,  // the client closed its side
  kReset,     // the client reset it
  kByServer,  // a reply of the script ended it, the handshake failed, or the server stopped
};

struct WireConnection {
  std::string peerAddress;
  std::string localAddress;  // the address that the client connected to
  WireEnd end = WireEnd::kOpen;
  std::uint64_t bytesReceived = 0;    // decrypted; set when the connection has ended
  std::uint64_t bytesPassedBack = 0;  // by WireReply::PassOn; likewise
};

}  // namespace lumtest

#endif  // LUM_TESTING_WIRE_WIREREQUEST_H
