// Starts and stops nginx for a test.

#include "Nginx.h"

#include <unistd.h>

#include <stdexcept>
#include <vector>

#include "wire/Ports.h"

namespace lumtest {

namespace {

// Ports that were free a moment ago: nginx cannot be handed a socket, so a start may lose a race.
constexpr int kStartAttempts = 5;

constexpr char kServer[] = R"(
    default_type application/json;
    root @PREFIX@/root;
    client_max_body_size 0;

    location = /json { return 200 '{"server": "nginx", "uri": "$request_uri"}'; }
    location = /status/403 { return 403 '{"status": 403}'; }
    location = /status/404 { return 404 '{"status": 404}'; }
    location = /status/503 { return 503 '{"status": 503}'; }
    location /files/ { default_type application/octet-stream; }
    # A proxied request has its body read, and kept in a file.
    client_body_in_file_only on;
    location = /sink { proxy_pass http://127.0.0.1:@PORT@/answer-200; }
    location = /answer-200 { client_body_in_file_only off; return 200 '{"token": "from nginx"}'; }
    location /configs/ { error_page 404 = /status/404; }
)";

std::string Replace(std::string text, const std::string& what, const std::string& with) {
  for (std::size_t at = text.find(what); at != std::string::npos;
       at = text.find(what, at + with.size())) {
    text.replace(at, what.size(), with);
  }
  return text;
}

std::uint16_t FreePort() {
  return RefusedPort().Port();
}

}  // namespace

Nginx::Nginx() : m_tls(lumtools::MakeTlsMaterial(m_directory.MakeDir("tls"), PassPhrase())) {
  m_directory.MakeDir("bodies");
  m_directory.MakeDir("root");
  m_directory.MakeDir("root/files");
  for (int attempt = 0; attempt < kStartAttempts; ++attempt) {
    m_port = FreePort();
    m_tlsPort = FreePort();
    m_http2Port = FreePort();
    if (Start()) {
      return;
    }
  }
  throw std::runtime_error("nginx does not start:\n" + m_process->Err());
}

Nginx::~Nginx() = default;

bool Nginx::Start() {
  WriteFile(m_directory.Path("nginx.conf"), Configuration());
  m_process.reset(new SpawnedProcess(
      {"nginx", "-p", m_directory.Path(), "-c", m_directory.Path("nginx.conf"), "-e", "stderr"}));
  return m_process->WaitForLine("start worker process [0-9]");  // it listens by then
}

std::string Nginx::Configuration() const {
  // The workers of a master that runs as root would become another user.
  std::string text = geteuid() == 0 ? "user root root;" : "";
  text += R"(
daemon off;
worker_processes 1;
pid @PREFIX@/pid;
error_log stderr notice;
events {}
http {
  log_format fields escape=none '$request_method $request_uri '
      '$http_content_type|$http_content_encoding|$http_x_auth_token|$http_authorization|'
      '$server_protocol|$ssl_client_s_dn';
  access_log /dev/stdout fields;
  client_body_temp_path @PREFIX@/bodies;
  proxy_temp_path @PREFIX@/proxy;
  fastcgi_temp_path @PREFIX@/fastcgi;
  uwsgi_temp_path @PREFIX@/uwsgi;
  scgi_temp_path @PREFIX@/scgi;
  server { listen 127.0.0.1:@PORT@; @SERVER@ }
  server {
    listen 127.0.0.1:@TLSPORT@ ssl;
    ssl_certificate @CERT@;
    ssl_certificate_key @KEY@;
    @SERVER@
  }
  server {
    listen 127.0.0.1:@HTTP2PORT@ ssl http2;
    ssl_certificate @CERT@;
    ssl_certificate_key @KEY@;
    ssl_client_certificate @CA@;
    ssl_verify_client optional;
    @SERVER@
  }
}
)";
  text = Replace(text, "@SERVER@", kServer);
  text = Replace(text, "@PREFIX@", m_directory.Path());
  text = Replace(text, "@PORT@", std::to_string(m_port));
  text = Replace(text, "@TLSPORT@", std::to_string(m_tlsPort));
  text = Replace(text, "@HTTP2PORT@", std::to_string(m_http2Port));
  text = Replace(text, "@CERT@", m_tls.serverCertificate);
  text = Replace(text, "@KEY@", m_tls.serverKey);
  return Replace(text, "@CA@", m_tls.caCertificate);
}

std::string Nginx::Http(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(m_port) + path;
}

std::string Nginx::Https(const std::string& path) const {
  return "https://" + HttpsHost() + path;
}

std::string Nginx::HttpsHost() const {
  return "127.0.0.1:" + std::to_string(m_tlsPort);
}

std::string Nginx::Http2(const std::string& path) const {
  return "https://" + Http2Host() + path;
}

std::string Nginx::Http2Host() const {
  return "127.0.0.1:" + std::to_string(m_http2Port);
}

bool Nginx::Logged(const std::string& request) {
  std::string pattern;
  for (const char c : request) {
    pattern += c == '|' ? "\\|" : std::string(1, c);
  }
  return m_process->WaitForLine(pattern);
}

std::string Nginx::LastBody() const {
  // nginx numbers the files it keeps.
  const std::vector<std::string> kept = FilesBelow(m_directory.Path("bodies"));
  return ReadFile(m_directory.Path("bodies/" + kept.at(kept.size() - 1)));
}

}  // namespace lumtest
