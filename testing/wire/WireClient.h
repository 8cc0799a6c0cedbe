// A client for raw bytes, for what no well-behaved client would send.

#ifndef LUM_TESTING_WIRE_WIRECLIENT_H
#define LUM_TESTING_WIRE_WIRECLIENT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace lumtest {

// The client's side of TLS; empty members are left out. Paths are those of PEM files.
struct WireClientTls {
  std::string ca;          // checks the server's certificate; without it nothing is checked
  std::string serverName;  // sent as SNI
  std::string certificate;
  std::string key;  // not encrypted
};

// One connection, used by one thread. Each call waits for at most half a minute and then throws
// std::runtime_error, as every call does that cannot do its work.
class WireClient {
 public:
  WireClient(const std::string& address, std::uint16_t port);
  ~WireClient();
  WireClient(const WireClient&) = delete;
  WireClient& operator=(const WireClient&) = delete;

  // Does the TLS handshake; what follows is encrypted.
  void StartTls(const WireClientTls& tls = {});

  // Sends all of `bytes`; false when the server has closed or reset the connection.
  bool Send(const std::string& bytes);

  // Reads up to and including the first `marker`; what came in behind it stays for the next call.
  // A connection that ends first gives what there was.
  std::string ReadUntil(const std::string& marker);

  // Reads exactly `size` bytes, or less when the connection ends first.
  std::string ReadBytes(std::size_t size);

  // Reads to the connection's end.
  std::string ReadAll();

  // Whether reading ended in a reset, and whether it ended in TLS's own closing message. OpenSSL's
  // reason when TLS ended in an error, an alert of the server's included.
  bool WasReset() const { return m_reset; }
  bool SawTlsClose() const { return m_tlsClosed; }
  const std::string& TlsError() const { return m_tlsError; }

  // Says that nothing more will be sent.
  void HalfClose();

  // Closes; with `reset` by RST.
  void Close(bool reset = false);

  std::uint16_t LocalPort() const;

 private:
  struct Tls;
  bool Fill();  // one read; false at the end

  int m_socket;
  std::unique_ptr<Tls> m_tls;
  std::string m_in;
  bool m_reset = false;
  bool m_tlsClosed = false;
  std::string m_tlsError;
};

}  // namespace lumtest

#endif  // LUM_TESTING_WIRE_WIRECLIENT_H
