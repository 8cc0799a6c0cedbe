// A GET over Boost.Beast.

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>

#include "PeerRequests.h"

namespace lumbench {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;

template <typename Stream>
int Run(Stream& stream, const Target& target, const std::list<std::string>& lines,
        std::string& body) {
  http::request<http::empty_body> request(http::verb::get, target.path, 11);
  request.set(http::field::host, target.host);
  request.set(http::field::accept, "*/*");
  for (const std::string& line : lines) {
    const std::size_t colon = line.find(": ");
    request.set(line.substr(0, colon), line.substr(colon + 2));
  }
  http::write(stream, request);
  beast::flat_buffer buffer;
  http::response<http::string_body> response;
  http::read(stream, buffer, response);
  body = std::move(response.body());
  return static_cast<int>(response.result_int());
}

}  // namespace

int BeastGet(const Target& target, const std::list<std::string>& lines, std::string& body) {
  asio::io_context context;
  const asio::ip::tcp::endpoint endpoint(asio::ip::make_address(target.host),
                                         static_cast<unsigned short>(target.port));
  if (!target.tls) {
    beast::tcp_stream stream(context);
    stream.connect(endpoint);
    return Run(stream, target, lines, body);
  }
  asio::ssl::context tls(asio::ssl::context::tls_client);
  tls.set_verify_mode(asio::ssl::verify_none);
  beast::ssl_stream<beast::tcp_stream> stream(context, tls);
  beast::get_lowest_layer(stream).connect(endpoint);
  stream.handshake(asio::ssl::stream_base::client);
  return Run(stream, target, lines, body);
}

}  // namespace lumbench
