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

// Up to what differs from start to start. Names of files are below the prefix.
constexpr char kConfiguration[] = R"(
daemon off;
worker_processes 1;
pid pid;
error_log stderr notice;
events {}
http {
  log_format fields escape=none '$request_method $request_uri '
      '$http_content_type|$http_content_encoding|$http_x_auth_token|$http_authorization|'
      '$server_protocol|$ssl_client_s_dn';
  access_log /dev/stdout fields;
  client_body_temp_path bodies;
  proxy_temp_path proxy;
  fastcgi_temp_path fastcgi;
  uwsgi_temp_path uwsgi;
  scgi_temp_path scgi;
  server {
    default_type application/json;
    root root;
    client_max_body_size 0;
    ssl_verify_client optional;

    location = /json { return 200 '{"server": "nginx", "uri": "$request_uri"}'; }
    location = /status/403 { return 403 '{"status": 403}'; }
    location = /status/404 { return 404 '{"status": 404}'; }
    location = /status/503 { return 503 '{"status": 503}'; }
    location /files/ { default_type application/octet-stream; }
    location = /answer-200 { return 200 '{"token": "from nginx"}'; }
    location /configs/ { error_page 404 = /status/404; }
)";

}  // namespace

Nginx::Nginx() : m_tls(lumtools::MakeTlsMaterial(m_directory.MakeDir("tls"), PassPhrase())) {
  m_directory.MakeDir("bodies");
  m_directory.MakeDir("root");
  m_directory.MakeDir("root/files");
  for (int attempt = 0; attempt < kStartAttempts; ++attempt) {
    for (std::uint16_t& port : m_ports) {
      port = RefusedPort().Port();
    }
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
  text += kConfiguration;
  text += "listen " + Host(kHttp) + ";\n";
  text += "listen " + Host(kHttps) + " ssl;\n";
  text += "listen " + Host(kHttp2) + " ssl http2;\n";
  text += "ssl_certificate " + m_tls.serverCertificate + ";\n";
  text += "ssl_certificate_key " + m_tls.serverKey + ";\n";
  text += "ssl_client_certificate " + m_tls.caCertificate + ";\n";
  // A proxied request has its body read, and kept in a file.
  text += "location = /sink { client_body_in_file_only on; proxy_pass http://" + Host(kHttp) +
          "/answer-200; }\n}}\n";
  return text;
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
