// Requests over curlpp.

#include <curlpp/Easy.hpp>
#include <curlpp/Infos.hpp>
#include <curlpp/Options.hpp>

#include "PeerRequests.h"

namespace lumbench {

namespace {

namespace options = curlpp::options;

// What all of them set, and the transfer.
Reply Run(curlpp::Easy& request, const std::string& url, const std::list<std::string>& lines) {
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

}  // namespace

Reply CurlppGet(const std::string& url, const std::list<std::string>& lines) {
  curlpp::Easy request;
  return Run(request, url, lines);
}

Reply CurlppPost(const std::string& url, const std::string& data,
                 const std::list<std::string>& lines) {
  curlpp::Easy request;
  request.setOpt(options::Post(true));
  request.setOpt(options::PostFields(data));
  request.setOpt(options::PostFieldSize(static_cast<long>(data.size())));
  return Run(request, url, lines);
}

Reply CurlppPut(const std::string& url, const std::string& data,
                const std::list<std::string>& lines) {
  curlpp::Easy request;
  request.setOpt(options::CustomRequest("PUT"));
  request.setOpt(options::PostFields(data));
  request.setOpt(options::PostFieldSize(static_cast<long>(data.size())));
  return Run(request, url, lines);
}

}  // namespace lumbench
