// LumCurlHttpPrivate: JSON GET and POST, one easy handle a request.

#include "LumCurlHttpPrivate.h"

#include "Log.h"

using namespace lumhttp;

namespace {

constexpr char kLogPath[] = "BaseAPI/LumCurlHttp/src/LumCurlHttpPrivate";

// Short on purpose: these are small JSON exchanges.
constexpr long kTimeoutSeconds = 5;

}  // namespace

// Not the library's version (docs/compatibility.md, user-agent).
LumCurlHttpPrivate::LumCurlHttpPrivate() : m_userAgent("QVcurlHttp/0.1.2") {
  WipeKeyPassword(m_keyPassword);
}

void LumCurlHttpPrivate::SetHeaders(const std::string& headers) {
  m_headers = headers;
}

HttpResult LumCurlHttpPrivate::Get(const std::string& url, const std::string& /*unused*/,
                                   bool useSsl) {
  HttpResult result;
  if (useSsl && LacksCertificates()) {
    LUM_LOG(kLogError, "Get", "GET(%s) use ssl, but certs is empty", url.c_str());
    return result;
  }

  const std::unique_lock<std::mutex> lock(m_mutex);  // outlives the transfer
  EasyTransfer transfer(result);
  if (!transfer.Init()) {
    LUM_LOG(kLogError, "Get", "GET curl init failed");
    return result;
  }
  transfer.headers = BuildHeaderList("Get");

  SetOption(transfer.handle, CURLOPT_USERAGENT, m_userAgent.c_str());
  SetOption(transfer.handle, CURLOPT_HTTPHEADER, transfer.headers.get());
  KeepEmptyValues(transfer.headers);
  SetOption(transfer.handle, CURLOPT_URL, url.c_str());
  SetOption(transfer.handle, CURLOPT_HTTPGET, 1L);
  SetResultOptions(transfer, useSsl);

  if (transfer.Perform()) {
    result.code = static_cast<int>(transfer.status);
    return result;
  }
  // The first text is libcurl's, not the URL (docs/compatibility.md, log-text-first); so in Post.
  LUM_LOG(kLogError, "Get", "GET failed for %s, ret: %d, code: %ld, errorBuf: %s",
          curl_easy_strerror(transfer.outcome), transfer.outcome, transfer.status,
          transfer.errorBuffer);
  result.body = FailureText("GET failed for: ", transfer.errorBuffer);
  return result;
}

HttpResult LumCurlHttpPrivate::Post(const std::string& url, const std::string& body, bool useSsl) {
  HttpResult result;
  if (useSsl && LacksCertificates()) {
    LUM_LOG(kLogError, "Post", "POST(%s) use ssl, but certs is empty", url.c_str());
    return result;
  }

  const std::unique_lock<std::mutex> lock(m_mutex);  // outlives the transfer
  EasyTransfer transfer(result);
  if (!transfer.Init()) {
    LUM_LOG(kLogError, "Post", "POST curl init failed");
    return result;
  }
  transfer.headers = BuildHeaderList("Post");

  SetOption(transfer.handle, CURLOPT_USERAGENT, m_userAgent.c_str());
  SetOption(transfer.handle, CURLOPT_HTTPHEADER, transfer.headers.get());
  KeepEmptyValues(transfer.headers);
  SetOption(transfer.handle, CURLOPT_URL, url.c_str());
  SetOption(transfer.handle, CURLOPT_POST, 1L);
  SetOption(transfer.handle, CURLOPT_POSTFIELDS, body.c_str());  // not copied
  SetOption(transfer.handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.length()));
  SetResultOptions(transfer, useSsl);

  if (transfer.Perform()) {
    result.code = static_cast<int>(transfer.status);
    return result;
  }
  LUM_LOG(kLogError, "Post", "POST failed for %s, ret: %d, code: %ld, errorBuf: %s",
          curl_easy_strerror(transfer.outcome), transfer.outcome, transfer.status,
          transfer.errorBuffer);
  result.body = FailureText("POST failed for: ", transfer.errorBuffer);
  return result;
}

bool LumCurlHttpPrivate::LacksCertificates() const {
  return m_caCertPath.empty() || m_clientCertPath.empty() || m_clientKeyPath.empty();
}

HeaderList LumCurlHttpPrivate::BuildHeaderList(const char* function) const {
  if (m_headers.empty()) {
    return JsonHeaderLines();
  }
  LUM_LOG(kLogInfo, function, "curl set headers, headers length=%d",
          static_cast<int>(m_headers.length()));
  HeaderList list;
  AppendLine(list, m_headers.c_str());
  return list;
}

void LumCurlHttpPrivate::SetResultOptions(EasyTransfer& transfer, bool useSsl) {
  const EasyHandle& handle = transfer.handle;
  SetOption(handle, CURLOPT_WRITEFUNCTION, &WriteToString);
  SetOption(handle, CURLOPT_WRITEDATA, &transfer.result);
  transfer.ClearErrorBuffer();
  SetOption(handle, CURLOPT_ERRORBUFFER, &transfer.errorBuffer[0]);
  SetOption(handle, CURLOPT_CONNECTTIMEOUT, kTimeoutSeconds);
  SetOption(handle, CURLOPT_TIMEOUT, kTimeoutSeconds);
  SetOption(handle, CURLOPT_NOSIGNAL, 1L);
  SetOption(handle, CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_V4));
  SetSslOptions(handle, useSsl);
}

void LumCurlHttpPrivate::SetSslOptions(const EasyHandle& handle, bool useSsl) {
  if (!useSsl) {
    SetOption(handle, CURLOPT_SSL_VERIFYPEER, 0L);
    SetOption(handle, CURLOPT_SSL_VERIFYHOST, 0L);
    return;
  }
  // A pass phrase serves one request: once libcurl has its copy, or has failed to make one, ours
  // goes (docs/compatibility.md, phrase-once).
  struct Wipe {
    KeyPassword& phrase;
    ~Wipe() { WipeKeyPassword(phrase); }
  } const wipe{m_keyPassword};
  // The chain is verified against the CA file, the host name is not compared
  // (docs/compatibility.md, verification).
  SetOption(handle, CURLOPT_SSL_VERIFYPEER, 1L);
  SetOption(handle, CURLOPT_SSL_VERIFYHOST, 0L);
  SetOption(handle, CURLOPT_CAINFO, m_caCertPath.c_str());
  SetOption(handle, CURLOPT_SSLCERT, m_clientCertPath.c_str());
  SetOption(handle, CURLOPT_SSLKEY, m_clientKeyPath.c_str());
  SetOption(handle, CURLOPT_SSLKEYTYPE, "PEM");
  SetOption(handle, CURLOPT_SSLCERTTYPE, "PEM");
  SetKeyPasswordOption(handle, m_keyPassword);
}
