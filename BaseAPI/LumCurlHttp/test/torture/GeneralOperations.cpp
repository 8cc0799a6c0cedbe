// LumCurlHttp.

#include "LumCurlHttpPrivate.h"
#include "Operation.h"
#include "Texts.h"

namespace lumtest {
namespace {

constexpr char kHeader[] = "X-Header: a value of more than fifteen characters";

// A refused path keeps its handle.
const StatedFailure kRefusedPath = {"-10000", "", StatedFailure::Log::kNothing, false, true};

void OfferHttpCertificate(World& w) {
  w.OfferCertificate(w.http);
}

Operation Get(const std::string& name, bool useSsl) {
  return {name,
          [useSsl](World& w) {
            int status = -2;
            const LumJson::Value answer =
                w.Try([&] { return w.http.Get(w.url, "unused", useSsl, status); });
            return Text(status, answer);
          },
          {Road::kAnswer, Road::kError, Road::kNotJson, Road::kCut, Road::kRefused},
          {{"-1 null"}}};
}

Operation Post(const std::string& name, bool useSsl) {
  return {name,
          [useSsl](World& w) {
            int status = -2;
            const LumJson::Value answer =
                w.Try([&] { return w.http.Post(w.url, kBody, useSsl, status); });
            return Text(status, answer);
          },
          {Road::kAnswer, Road::kError, Road::kNotJson, Road::kCut, Road::kRefused},
          {{"-1 null"}}};
}

Operation Download() {
  Operation download{"LumCurlHttp::DownloadFile",
                     [](World& w) {
                       const std::string url = w.url + "/file";
                       const std::string path = w.Path("download");
                       return std::to_string(w.Try([&] { return w.http.DownloadFile(url, path); }));
                     },
                     {Road::kAnswer, Road::kError, Road::kCut, Road::kRefused},
                     {{"-10000"}, kRefusedPath}};
  download.limitSeconds = 60;
  return download;
}

// Nearly all of its allocations are OpenSSL's, hence its place among the operations over https.
Operation Initialise() {
  Operation initialise{"LumCurlHttp::CurlGlobalInit", [](World& w) {
                         const int result = w.Try([] { return LumCurlHttp::CurlGlobalInit(); });
                         return result == 0 ? "0" : "an error";
                       }};
  initialise.failures = {{"an error", "", StatedFailure::Log::kNothing}};
  initialise.fresh = true;
  return initialise;
}

}  // namespace

std::vector<Operation> GeneralOperations(Connection connection) {
  if (connection == Connection::kCertificate) {
    Operation get = Get("LumCurlHttp::Get", true);
    Operation post = Post("LumCurlHttp::Post", true);
    get.prepare = post.prepare = OfferHttpCertificate;  // a pass phrase serves one request
    return {get, post};
  }
  std::vector<Operation> all = {Get("LumCurlHttp::Get", false), Post("LumCurlHttp::Post", false),
                                Download()};
  if (connection == Connection::kTls) {
    all.push_back(Initialise());
    return all;
  }

  Operation get = Get("LumCurlHttp::Get, header set", false);
  get.prepare = [](World& w) { w.http.SetHeaders(kHeader); };
  all.push_back(get);

  Operation lacking = Get("LumCurlHttp::Get, no certificates", true);
  lacking.roads = {Road::kNone};
  all.push_back(lacking);

  all.push_back({"LumCurlHttp::LumCurlHttp", [](World& w) {
                   const auto made = w.Try([] { return std::make_unique<LumCurlHttp>(); });
                   return made->d_pointer->m_userAgent;
                 }});
  all.push_back({"LumCurlHttp::SetHeaders", [](World& w) {
                   const std::string line = kHeader;
                   w.Try([&] { w.http.SetHeaders(line); });
                   return w.http.d_pointer->m_headers;
                 }});
  all.back().prepare = [](World& w) { std::string().swap(w.http.d_pointer->m_headers); };
  all.push_back({"LumCurlHttp::SetSslInfo", [](World& w) {
                   w.Try([&] {
                     w.http.SetSslInfo(kLongText, kLongText, kLongText, w.passPhrase,
                                       sizeof w.passPhrase);
                   });
                   const LumCurlHttpPrivate& own = *w.http.d_pointer;
                   return own.m_caCertPath + own.m_clientCertPath + own.m_clientKeyPath +
                          reinterpret_cast<const char*>(own.m_keyPassword);
                 }});
  all.push_back({"LumCurlHttp::SetSslInfo, no pass phrase", [](World& w) {
                   w.Try([&] { w.http.SetSslInfo("", "", "", nullptr, 0); });
                   return w.http.d_pointer->m_caCertPath;
                 }});
  Operation noUrl = Get("LumCurlHttp::Get, no URL", false);
  noUrl.run = [](World& w) {
    int status = -2;
    const LumJson::Value answer = w.Try([&] { return w.http.Get("", "", false, status); });
    return Text(status, answer);
  };
  noUrl.roads = {Road::kNone};
  all.push_back(noUrl);
  all.push_back({"LumCurlHttp::DownloadFile, refused path",
                 [](World& w) {
                   const std::string path = w.Path("logs");
                   return std::to_string(w.Try([&] { return w.http.DownloadFile(w.url, path); }));
                 },
                 {Road::kNone},
                 {{"-10000"}, kRefusedPath}});
  return all;
}

}  // namespace lumtest
