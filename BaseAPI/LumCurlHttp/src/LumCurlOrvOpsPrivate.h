// LumCurlOrvOpsPrivate: the settings and the five transfers behind LumCurlOrvOps.

#ifndef LUM_CURL_ORV_OPS_PRIVATE_H
#define LUM_CURL_ORV_OPS_PRIVATE_H

#include <cstdint>
#include <cstdio>
#include <list>
#include <string>

#include "CurlEasy.h"
#include "HttpResult.h"
#include "KeyPassword.h"

// No lock: each transfer has its own handle and buffers, settings are read as they are.
//
// Every transfer returns `code` -1 when none was performed, else the HTTP status, 0 where no answer
// came; `body` is the response body, or the failure text of a transfer that failed.
class LumCurlOrvOpsPrivate {
 public:
  using HeaderLines = std::list<std::string>;

  static constexpr std::uint32_t kNoSpeedLimit = 0xFFFFFFFF;

  LumCurlOrvOpsPrivate();

  void SetLimitSpeed(std::uint32_t bytesPerSecond);
  void SetFp(FILE* stream);

  HttpResult Get(const std::string& url, const HeaderLines& lines);
  HttpResult Put(const std::string& url, const std::string& body, const HeaderLines& lines);
  HttpResult Post(const std::string& url, const char* data, std::uint32_t length,
                  const HeaderLines& lines);
  HttpResult Post(const std::string& url, const std::string& body, const HeaderLines& lines,
                  std::uint32_t timeoutSeconds);
  HttpResult Upload(const std::string& url, const std::string& filePath, const HeaderLines& lines,
                    std::uint32_t timeoutSeconds);

  // Compresses `text` into `capacity` bytes, no less than its length. Returns the compressed
  // length; 0 or less when that fails, which it does for a capacity that no int holds.
  static int Gzip(const std::string& text, char* destination, std::size_t capacity);

  // The host of a URL with its port; empty when the URL is not accepted.
  static std::string GetDomain(const std::string& url);
  void SetDomainIp(const std::string& url, CURL* handle);
  void SetInterface(const lumhttp::EasyHandle& handle);
  void UpdateInterfaceNameFromMac();
  void UpdateBindIpFromMac();

  bool curlGlobalInited = false;
  std::string caInfoPath;
  std::string sslCertPath;
  std::string sslKeyPath;
  std::string uploadLogDate;
  std::string uploadLogAuthorisation;
  std::string domainIp;       // the address an upload's host is pinned to
  std::string bindIp;         // read by no transfer
  std::string bindMac;        // names the interface while bindInterface is empty
  std::string bindInterface;  // the interface requests leave from
  std::string securityToken;
  lumhttp::KeyPassword keyPassword;
  bool sslInfoSet = false;                   // a pass phrase is stored: offer the certificate
  std::uint32_t limitSpeed = kNoSpeedLimit;  // of uploads, bytes per second
  std::int32_t connectTimeout = 4;           // seconds; uploads have their own
  std::int32_t requestTimeout = 4;           // seconds; of Get, Put and the raw-data Post
  FILE* uploadFp = nullptr;                  // the caller's stream for the next upload

 private:
  HttpResult PostBytes(const std::string& url, const char* data, std::size_t length,
                       const HeaderLines& lines, long timeoutSeconds);
  static void BuildHeaderList(lumhttp::EasyTransfer& transfer, const HeaderLines& lines);
  void SetSslOptions(const lumhttp::EasyHandle& handle);
};

#endif  // LUM_CURL_ORV_OPS_PRIVATE_H
