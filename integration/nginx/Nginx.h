// Debian's nginx, started for a test on free ports with a prefix of its own.

#ifndef LUM_INTEGRATION_NGINX_H
#define LUM_INTEGRATION_NGINX_H

#include <cstdint>
#include <memory>
#include <string>

#include "support/Files.h"
#include "support/Process.h"
#include "tls/TlsMaterial.h"

namespace lumtest {

// One server over HTTP, over HTTPS, and over HTTPS with HTTP/2; clients may show a certificate.
//
//   /json          200 and a JSON object         /status/NNN   403, 404, 503 and a JSON object
//   /sink          takes any body, answers 200 and a JSON object; the body is in LastBody()
//   /files/...     the files of Root()
//   /configs/...   the files of Root()/configs, 404 with a JSON object for the others
class Nginx {
 public:
  Nginx();
  ~Nginx();
  Nginx(const Nginx&) = delete;
  Nginx& operator=(const Nginx&) = delete;

  enum Port { kHttp, kHttps, kHttp2, kPorts };
  // "127.0.0.1:port"
  std::string Host(Port port) const { return "127.0.0.1:" + std::to_string(m_ports[port]); }

  const lumtools::TlsMaterial& Tls() const { return m_tls; }
  // Of the encrypted client key.
  static const char* PassPhrase() { return "an nginx test phrase"; }

  std::string Root() const { return m_directory.Path("root"); }

  // Waits until the access log has a line with this text, letters, blanks, "/" and "|" in it. A
  // line is "method uri content-type|content-encoding|x-auth-token|authorization|protocol|client",
  // the client being the name in its certificate.
  bool Logged(const std::string& request);
  // The body of the last request to /sink, byte for byte.
  std::string LastBody() const;

 private:
  bool Start();
  std::string Configuration() const;

  TempDir m_directory;
  lumtools::TlsMaterial m_tls;
  std::uint16_t m_ports[kPorts] = {};
  std::unique_ptr<SpawnedProcess> m_process;
};

}  // namespace lumtest

#endif  // LUM_INTEGRATION_NGINX_H
