// A client for raw bytes, for what no well-behaved client would send.

#ifndef LUM_TESTING_WIRE_WIRECLIENT_H
#define LUM_TESTING_WIRE_WIRECLIENT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "FileDescriptor.h"

struct ssl_st;

namespace lumtest {

// One connection, used by one thread. Each call waits for at most half a minute and then throws
// std::runtime_error, as every call does that cannot do its work.
class WireClient {
 public:
  WireClient(const std::string& address, std::uint16_t port);
  ~WireClient();
  WireClient(const WireClient&) = delete;
  WireClient& operator=(const WireClient&) = delete;

  // Does the TLS handshake, checking nothing; what follows is encrypted.
  void StartTls();

  // Sends all of `bytes`; false when the server has closed or reset the connection.
  bool Send(const std::string& bytes);

  // Reads up to and including the first `marker`; what came in behind it stays for the next call.
  // A connection that ends first gives what there was.
  std::string ReadUntil(const std::string& marker);

  // Reads exactly `size` bytes, or less when the connection ends first.
  std::string ReadBytes(std::size_t size);

  // Reads to the connection's end.
  std::string ReadAll();

  // Whether reading ended in a reset, and whether it ended in TLS's own closing message.
  bool WasReset() const { return m_reset; }
  bool SawTlsClose() const { return m_tlsClosed; }

  // Says that nothing more will be sent.
  void HalfClose();

  // Closes; with `reset` by RST.
  void Close(bool reset = false);

 private:
  bool Fill();  // one read; false at the end

  FileDescriptor m_socket;
  std::shared_ptr<ssl_st> m_tls;
  std::string m_in;
  bool m_reset = false;
  bool m_tlsClosed = false;
};

}  // namespace lumtest

#endif  // LUM_TESTING_WIRE_WIRECLIENT_H
