// One accepted connection, plain or TLS, as the byte stream that cpp-httplib reads and writes.
#ifndef LUM_BACKEND_CONNECTION_H
#define LUM_BACKEND_CONNECTION_H

#include <httplib.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "FileDescriptor.h"
#include "Tls.h"

// A stream over a non-blocking socket. Every wait also watches `stop`, a descriptor that becomes
// readable when the back end ends: from then on reads fail at once and writes do not wait, so no
// client can hold the end up. It also counts what goes out, keeps the head of a request as it was
// sent, and closes in mid-answer on demand. One thread per connection uses it.
class Connection : public httplib::Stream {
 public:
  // Takes `socket` over. `context` is null for plain HTTP; it and `stop` must outlive the object.
  Connection(FileDescriptor socket, int stop, SSL_CTX* context);

  // TLS handshake; nothing to do for plain HTTP. Returns false with `problem` set when it fails.
  bool Handshake(std::string& problem);

  // Waits until the first byte of a request is there. False: closed, stopped or idle for `limit`.
  bool AwaitRequest(std::chrono::milliseconds limit);

  // From here on the bytes handed to a reader are kept as a request's head ...
  void StartHead();
  // ... until this call, which returns them.
  std::string TakeHead();
  // True when a head was longer than 64 KiB; reading has failed since then.
  bool HeadTooLong() const { return m_headTooLong; }

  // Lets `bytes` more bytes out, then closes the connection without a word.
  void CutAfter(std::uint64_t bytes) { m_untilCut = bytes; }

  // Waits for `time`, shorter when the back end ends or the connection breaks.
  void Pause(std::chrono::milliseconds time) const;

  // Ends the connection so that the peer gets to read what was written: says goodbye, then throws
  // away what still comes in, for a short time only.
  void Close();

  // True when the last bytes handed to a reader were an empty line.
  bool AtEmptyLine() const { return m_tail == std::array<char, 4>{'\r', '\n', '\r', '\n'}; }

  bool Stopping() const;
  std::uint64_t BytesOut() const { return m_bytesOut; }
  bool IsTls() const { return m_ssl != nullptr; }
  // Subject of the client's certificate, or "".
  std::string Subject() const { return m_ssl ? ClientSubject(m_ssl.get()) : std::string(); }
  // Address and port under which the client reached the back end, as a URL's authority.
  std::string LocalAuthority() const;

  bool is_readable() const override { return !m_broken; }
  bool is_writable() const override { return !m_broken; }
  ssize_t read(char* data, size_t size) override;
  ssize_t write(const char* data, size_t size) override;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  socket_t socket() const override { return m_socket.Get(); }

 private:
  enum class Wait { kReady, kTimeout, kStopped };

  Wait WaitFor(short events, std::chrono::milliseconds limit) const;
  bool WaitForSsl(int result);
  ssize_t Receive(char* data, std::size_t size);
  ssize_t Send(const char* data, std::size_t size);
  bool Fill();
  void Note(char* data, std::size_t count);

  FileDescriptor m_socket;
  const int m_stop;
  Ssl m_ssl;
  std::vector<char> m_input;  // received, not yet read: [m_inputStart, m_inputEnd)
  std::size_t m_inputStart = 0;
  std::size_t m_inputEnd = 0;
  std::string m_head;
  bool m_keepHead = false;
  bool m_inQuery = false;           // of the request line
  std::array<char, 4> m_tail = {};  // last bytes handed to a reader
  bool m_headTooLong = false;
  bool m_broken = false;
  std::optional<std::uint64_t> m_untilCut;
  std::uint64_t m_bytesOut = 0;
};

#endif  // LUM_BACKEND_CONNECTION_H
