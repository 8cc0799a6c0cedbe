// LumCurlHttpPrivate: the transfers and settings behind LumCurlHttp.

#ifndef LUM_CURL_HTTP_PRIVATE_H
#define LUM_CURL_HTTP_PRIVATE_H

#include <mutex>
#include <string>

#include "CurlEasy.h"
#include "HttpResult.h"
#include "KeyPassword.h"

// Get and Post lock m_mutex for the whole transfer; nothing else does.
class LumCurlHttpPrivate {
 public:
  LumCurlHttpPrivate();

  void SetHeaders(const std::string& headers);

  // One blocking request each. `code` is the HTTP status, or -1 with an empty body when no transfer
  // was performed, or -1 with the failure text when it failed.
  HttpResult Get(const std::string& url, const std::string& unused, bool useSsl);
  HttpResult Post(const std::string& url, const std::string& body, bool useSsl);

  std::mutex m_mutex;
  std::string m_caCertPath;
  std::string m_clientCertPath;
  std::string m_clientKeyPath;
  lumhttp::KeyPassword m_keyPassword;  // from SetSslInfo to the next request with TLS
  std::string m_userAgent;
  std::string m_headers;  // one header line in place of the default ones

 private:
  bool LacksCertificates() const;
  lumhttp::HeaderList BuildHeaderList(const char* function) const;
  void SetResultOptions(lumhttp::EasyTransfer& transfer, bool useSsl);
  void SetSslOptions(const lumhttp::EasyHandle& handle, bool useSsl);
};

#endif  // LUM_CURL_HTTP_PRIVATE_H
