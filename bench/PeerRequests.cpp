// A GET over curlpp, cpp-httplib and Boost.Beast.

#include "PeerRequests.h"

#include <httplib.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <curlpp/Easy.hpp>
#include <curlpp/Infos.hpp>
#include <curlpp/Options.hpp>
#include <utility>

namespace lumbench {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace options = curlpp::options;

std::pair<std::string, std::string> NameAndValue(const std::string& line) {
  const std::size_t colon = line.find(": ");
  return {line.substr(0, colon), line.substr(colon + 2)};
}

Reply RunHttplib(httplib::ClientImpl& client, const Target& target,
                 const std::list<std::string>& lines) {
  client.set_connection_timeout(4);
  client.set_read_timeout(4);
  httplib::Headers headers;
  for (const std::string& line : lines) {
    headers.insert(NameAndValue(line));
  }
  httplib::Result result = client.Get(target.path, headers);
  return result ? Reply{result->status, std::move(result->body)} : Reply{};
}

template <typename Stream>
Reply RunBeast(Stream& stream, const Target& target, const std::list<std::string>& lines) {
  http::request<http::empty_body> request(http::verb::get, target.path, 11);
  request.set(http::field::host, target.host);
  request.set(http::field::accept, "*/*");
  for (const std::string& line : lines) {
    const auto [name, value] = NameAndValue(line);
    request.set(name, value);
  }
  http::write(stream, request);
  beast::flat_buffer buffer;
  http::response<http::string_body> response;
  http::read(stream, buffer, response);
  return {static_cast<long>(response.result_int()), std::move(response.body())};
}

}  // namespace

Reply CurlppGet(const std::string& url, const std::list<std::string>& lines) {
  curlpp::Easy request;
  Reply reply;
  request.setOpt(options::HttpHeader(lines));
  request.setOpt(options::Url(url));
  request.setOpt(options::WriteFunction(curlpp::types::WriteFunctionFunctor(
      [&reply](char* data, std::size_t size, std::size_t count) {
        reply.body.append(data, size * count);
        return size * count;
      })));
  request.setOpt(options::NoSignal(true));
  request.setOpt(options::ConnectTimeout(4));
  request.setOpt(options::Timeout(4));
  request.setOpt(options::SslVerifyPeer(false));
  request.setOpt(options::SslVerifyHost(0));
  request.perform();
  reply.status = curlpp::infos::ResponseCode::get(request);
  return reply;
}

Reply HttplibGet(const Target& target, const std::list<std::string>& lines) {
  if (target.tls) {
    httplib::SSLClient client(target.host, target.port);
    client.enable_server_certificate_verification(false);
    return RunHttplib(client, target, lines);
  }
  httplib::ClientImpl client(target.host, target.port);
  return RunHttplib(client, target, lines);
}

Reply BeastGet(const Target& target, const std::list<std::string>& lines) {
  asio::io_context context;
  const asio::ip::tcp::endpoint endpoint(asio::ip::make_address(target.host),
                                         static_cast<unsigned short>(target.port));
  if (!target.tls) {
    beast::tcp_stream stream(context);
    stream.connect(endpoint);
    return RunBeast(stream, target, lines);
  }
  asio::ssl::context tls(asio::ssl::context::tls_client);
  tls.set_verify_mode(asio::ssl::verify_none);
  beast::ssl_stream<beast::tcp_stream> stream(context, tls);
  beast::get_lowest_layer(stream).connect(endpoint);
  stream.handshake(asio::ssl::stream_base::client);
  return RunBeast(stream, target, lines);
}

}  // namespace lumbench
