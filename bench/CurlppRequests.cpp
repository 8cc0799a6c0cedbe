// Requests over curlpp.

#include "CurlppRequests.h"

#include <curlpp/Easy.hpp>
#include <curlpp/Infos.hpp>
#include <curlpp/Options.hpp>

namespace lumbench {

namespace {

namespace options = curlpp::options;

// What all of them set, and the transfer.
long Run(curlpp::Easy& request, const std::string& url, const std::list<std::string>& lines,
         std::string& body) {
  request.setOpt(options::HttpHeader(lines));
  request.setOpt(options::Url(url));
  request.setOpt(options::WriteFunction(
      curlpp::types::WriteFunctionFunctor([&body](char* data, std::size_t size, std::size_t count) {
        body.append(data, size * count);
        return size * count;
      })));
  request.setOpt(options::NoSignal(true));
  request.setOpt(options::ConnectTimeout(4));
  request.setOpt(options::Timeout(4));
  request.setOpt(options::SslVerifyPeer(false));
  request.setOpt(options::SslVerifyHost(0));
  request.perform();
  return curlpp::infos::ResponseCode::get(request);
}

}  // namespace

long CurlppGet(const std::string& url, const std::list<std::string>& lines, std::string& body) {
  curlpp::Easy request;
  return Run(request, url, lines, body);
}

long CurlppPost(const std::string& url, const std::string& data,
                const std::list<std::string>& lines, std::string& body) {
  curlpp::Easy request;
  request.setOpt(options::Post(true));
  request.setOpt(options::PostFields(data));
  request.setOpt(options::PostFieldSize(static_cast<long>(data.size())));
  return Run(request, url, lines, body);
}

long CurlppPut(const std::string& url, const std::string& data, const std::list<std::string>& lines,
               std::string& body) {
  curlpp::Easy request;
  request.setOpt(options::CustomRequest("PUT"));
  request.setOpt(options::PostFields(data));
  request.setOpt(options::PostFieldSize(static_cast<long>(data.size())));
  return Run(request, url, lines, body);
}

}  // namespace lumbench
