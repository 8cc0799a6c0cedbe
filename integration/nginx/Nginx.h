// Debian's nginx, started for a test on free ports with a prefix of its own.

#ifndef LUM_INTEGRATION_NGINX_H
#define LUM_INTEGRATION_NGINX_H

#include <LumCurlHttp.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "support/Files.h"
#include "support/Process.h"
#include "tls/TlsMaterial.h"

namespace lumtest {

// One server over HTTP, and over HTTPS for clients with a certificate; one over HTTPS for anybody;
// one that offers HTTP/2 to anybody.
//
//   /json          200 and a JSON object         /status/NNN   that status and a JSON object
//   /html          200 and an HTML page          /files/...    the files of Root()
//   /cut           closes without an answer      /slow         some bytes a second, for minutes
//   /sink, /token  take any body, answer 200 and a JSON object; the body is in LastBody()
//   /objects/...   PUT stores the file, 201 for a new one and 204 for one replaced
//   /configs/...   the files of Root()/configs, 404 with a JSON object for the others
class Nginx {
 public:
  Nginx();
  ~Nginx();
  Nginx(const Nginx&) = delete;
  Nginx& operator=(const Nginx&) = delete;

  std::string Http(const std::string& path) const;
  std::string Https(const std::string& path) const;      // wants a client certificate
  std::string OpenHttps(const std::string& path) const;  // wants none
  std::string OpenHttpsHost() const;                     // "127.0.0.1:port"
  std::string Http2(const std::string& path) const;
  std::string Http2Host() const;

  const lumtools::TlsMaterial& Tls() const { return m_tls; }
  // Of the encrypted client key.
  static const char* PassPhrase() { return "an nginx test phrase"; }

  std::string Root() const { return m_directory.Path("root"); }

  // Waits until the access log has a line with this text, letters, blanks, "/" and "|" in it. A
  // line is "method uri content-type|content-encoding|x-auth-token|authorization|protocol|client",
  // the client being the name in its certificate.
  bool Logged(const std::string& request);
  // The body of the last request to /sink or /token, byte for byte.
  std::string LastBody() const;

 private:
  bool Start();
  std::string Configuration() const;

  TempDir m_directory;
  lumtools::TlsMaterial m_tls;
  std::uint16_t m_port = 0;
  std::uint16_t m_tlsPort = 0;
  std::uint16_t m_openTlsPort = 0;
  std::uint16_t m_http2Port = 0;
  std::unique_ptr<SpawnedProcess> m_process;
};

// The tests of a suite, a fixture of its own on this one, share a server.
class NginxTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    LumCurlHttp::CurlGlobalInit();
    nginx = std::make_unique<Nginx>();
  }
  static void TearDownTestSuite() { nginx.reset(); }

  // Stores the material of a client that nginx lets in, with its encrypted key.
  template <typename Client>
  static void Identify(Client& client) {
    std::string phrase = Nginx::PassPhrase();
    client.SetSslInfo(nginx->Tls().caCertificate, nginx->Tls().clientCertificate,
                      nginx->Tls().clientEncryptedKey, reinterpret_cast<unsigned char*>(&phrase[0]),
                      static_cast<int>(phrase.size()));
  }

  static inline std::unique_ptr<Nginx> nginx;
};

}  // namespace lumtest

#endif  // LUM_INTEGRATION_NGINX_H
