// A GET over cpp-httplib.

#include <httplib.h>

#include "PeerRequests.h"

namespace lumbench {

namespace {

httplib::Headers HeadersOf(const std::list<std::string>& lines) {
  httplib::Headers headers;
  for (const std::string& line : lines) {
    const std::size_t colon = line.find(": ");
    headers.emplace(line.substr(0, colon), line.substr(colon + 2));
  }
  return headers;
}

template <typename Client>
int Run(Client& client, const Target& target, const std::list<std::string>& lines,
        std::string& body) {
  client.set_connection_timeout(4);
  client.set_read_timeout(4);
  const httplib::Result result = client.Get(target.path, HeadersOf(lines));
  if (!result) {
    return 0;
  }
  body = std::move(result->body);
  return result->status;
}

}  // namespace

int HttplibGet(const Target& target, const std::list<std::string>& lines, std::string& body) {
  if (target.tls) {
    httplib::SSLClient client(target.host, target.port);
    client.enable_server_certificate_verification(false);
    return Run(client, target, lines, body);
  }
  httplib::ClientImpl client(target.host, target.port);
  return Run(client, target, lines, body);
}

}  // namespace lumbench
