// LumCurlOrvOpsPrivate: the service client's transfers, one easy handle each.

#include "LumCurlOrvOpsPrivate.h"

#include <climits>
#include <cstring>
#include <memory>

#include "File.h"
#include "Log.h"
#include "LumFileSys.h"
#include "LumNet.h"

using namespace lumhttp;

namespace {

constexpr char kLogPath[] = "BaseAPI/LumCurlHttp/src/LumCurlOrvOpsPrivate";

constexpr long kUploadConnectTimeoutSeconds = 10;

// libcurl's read callback of an upload; `user` is the stream.
std::size_t ReadFromFile(char* buffer, std::size_t size, std::size_t count, void* user) {
  return std::fread(buffer, size, count, static_cast<FILE*>(user));
}

// The size of a stream in bytes, leaving it at its start. A stream that cannot seek has none: it
// stays where it is, and -1 has libcurl send it in chunks. So it is where a file system fails to
// find the end: ftell would tell another place, and an upload cut there would pass for whole.
curl_off_t SizeFromStart(FILE* stream) {
  const bool atEnd = std::fseek(stream, 0, SEEK_END) == 0;
  const long size = std::ftell(stream);
  (void)std::fseek(stream, 0, SEEK_SET);
  return atEnd ? size : -1;
}

bool Contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

}  // namespace

LumCurlOrvOpsPrivate::LumCurlOrvOpsPrivate() {
  WipeKeyPassword(keyPassword);
}

void LumCurlOrvOpsPrivate::SetLimitSpeed(std::uint32_t bytesPerSecond) {
  limitSpeed = bytesPerSecond;
}

void LumCurlOrvOpsPrivate::SetFp(FILE* stream) {
  uploadFp = stream;
}

HttpResult LumCurlOrvOpsPrivate::Get(const std::string& url, const HeaderLines& lines) {
  HttpResult result;
  EasyTransfer transfer(result);
  transfer.ClearErrorBuffer();
  if (!transfer.Init()) {
    LUM_LOG(kLogError, "Get", "GET curl init failed");
    return result;
  }
  BuildHeaderList(transfer, lines);

  SetOption(transfer.handle, CURLOPT_URL, url.c_str());
  SetOption(transfer.handle, CURLOPT_POST, 0L);
  SetOption(transfer.handle, CURLOPT_WRITEFUNCTION, &WriteToString);
  SetOption(transfer.handle, CURLOPT_WRITEDATA, &transfer.result);
  SetOption(transfer.handle, CURLOPT_NOSIGNAL, 1L);
  SetOption(transfer.handle, CURLOPT_ERRORBUFFER, &transfer.errorBuffer[0]);
  SetOption(transfer.handle, CURLOPT_CONNECTTIMEOUT, static_cast<long>(connectTimeout));
  SetOption(transfer.handle, CURLOPT_TIMEOUT, static_cast<long>(requestTimeout));
  SetInterface(transfer.handle);
  SetSslOptions(transfer.handle);

  const bool done = transfer.Perform();
  result.code = static_cast<int>(transfer.status);
  transfer.headers.reset();
  if (!done) {
    // The first text is libcurl's, not the URL (docs/compatibility.md, log-text-first); so in every
    // transfer below.
    LUM_LOG(kLogError, "Get", "GET failed for %s, resOps: %d, code: %ld, errorBuf: %s",
            curl_easy_strerror(transfer.outcome), transfer.outcome, transfer.status,
            transfer.errorBuffer);
    result.body = FailureText("GET failed for: ", transfer.errorBuffer);
  }
  return result;
}

// PUT alone sets no CURLOPT_NOSIGNAL, and its TLS options before the interface
// (docs/compatibility.md, put-order).
HttpResult LumCurlOrvOpsPrivate::Put(const std::string& url, const std::string& body,
                                     const HeaderLines& lines) {
  HttpResult result;
  EasyTransfer transfer(result);
  transfer.ClearErrorBuffer();
  if (!transfer.Init()) {
    LUM_LOG(kLogError, "Put", "PUT curl init failed");
    return result;
  }
  BuildHeaderList(transfer, lines);

  SetOption(transfer.handle, CURLOPT_URL, url.c_str());
  SetOption(transfer.handle, CURLOPT_CUSTOMREQUEST, "PUT");
  SetOption(transfer.handle, CURLOPT_POSTFIELDS, body.c_str());
  SetOption(transfer.handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.length()));
  SetOption(transfer.handle, CURLOPT_WRITEFUNCTION, &WriteToString);
  SetOption(transfer.handle, CURLOPT_WRITEDATA, &transfer.result);
  SetOption(transfer.handle, CURLOPT_ERRORBUFFER, &transfer.errorBuffer[0]);
  SetOption(transfer.handle, CURLOPT_CONNECTTIMEOUT, static_cast<long>(connectTimeout));
  SetOption(transfer.handle, CURLOPT_TIMEOUT, static_cast<long>(requestTimeout));
  SetSslOptions(transfer.handle);
  SetInterface(transfer.handle);

  const bool done = transfer.Perform();
  result.code = static_cast<int>(transfer.status);
  transfer.headers.reset();
  if (!done) {
    LUM_LOG(kLogError, "Put", "PUT failed for %s, resOps: %d, code: %ld, errorBuf: %s",
            curl_easy_strerror(transfer.outcome), transfer.outcome, transfer.status,
            transfer.errorBuffer);
    result.body = FailureText("PUT failed for: ", transfer.errorBuffer);
  }
  return result;
}

HttpResult LumCurlOrvOpsPrivate::Post(const std::string& url, const char* data,
                                      std::uint32_t length, const HeaderLines& lines) {
  return PostBytes(url, data, length, lines, requestTimeout);
}

HttpResult LumCurlOrvOpsPrivate::Post(const std::string& url, const std::string& body,
                                      const HeaderLines& lines, std::uint32_t timeoutSeconds) {
  return PostBytes(url, body.c_str(), body.length(), lines, static_cast<long>(timeoutSeconds));
}

HttpResult LumCurlOrvOpsPrivate::PostBytes(const std::string& url, const char* data,
                                           std::size_t length, const HeaderLines& lines,
                                           long timeoutSeconds) {
  HttpResult result;
  EasyTransfer transfer(result);
  transfer.ClearErrorBuffer();
  if (!transfer.Init()) {
    LUM_LOG(kLogError, "Post", "POST curl init failed");
    return result;
  }
  BuildHeaderList(transfer, lines);

  SetOption(transfer.handle, CURLOPT_URL, url.c_str());
  SetOption(transfer.handle, CURLOPT_POST, 1L);
  SetOption(transfer.handle, CURLOPT_POSTFIELDS, data);  // not copied
  SetOption(transfer.handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(length));
  SetOption(transfer.handle, CURLOPT_WRITEFUNCTION, &WriteToString);
  SetOption(transfer.handle, CURLOPT_WRITEDATA, &transfer.result);
  SetOption(transfer.handle, CURLOPT_NOSIGNAL, 1L);
  SetOption(transfer.handle, CURLOPT_ERRORBUFFER, &transfer.errorBuffer[0]);
  SetOption(transfer.handle, CURLOPT_CONNECTTIMEOUT, static_cast<long>(connectTimeout));
  SetOption(transfer.handle, CURLOPT_TIMEOUT, timeoutSeconds);
  SetInterface(transfer.handle);
  SetSslOptions(transfer.handle);

  const bool done = transfer.Perform();
  result.code = static_cast<int>(transfer.status);
  transfer.headers.reset();
  if (!done) {
    LUM_LOG(kLogError, "Post", "POST failed for %s, resOps: %d, code: %ld, errorBuf: %s",
            curl_easy_strerror(transfer.outcome), transfer.outcome, transfer.status,
            transfer.errorBuffer);
    result.body = FailureText("POST failed for: ", transfer.errorBuffer);
  }
  return result;
}

// No write function is set: the server's reply goes to standard output (docs/compatibility.md,
// upload-reply).
HttpResult LumCurlOrvOpsPrivate::Upload(const std::string& url, const std::string& filePath,
                                        const HeaderLines& lines, std::uint32_t timeoutSeconds) {
  HttpResult result;
  EasyTransfer transfer(result);
  transfer.ClearErrorBuffer();
  if (!transfer.Init()) {
    // docs/compatibility.md, log-upload-init.
    LUM_LOG(kLogError, "Upload", "POST curl init failed");
    return result;
  }
  SetDomainIp(url, transfer.handle.get());
  if (!LumDir::LumRealPath(filePath.c_str(), static_cast<int>(std::strlen(filePath.c_str())))) {
    return result;
  }
  File opened;
  FILE* stream = uploadFp;
  if (stream == nullptr) {
    opened.reset(std::fopen(filePath.c_str(), "rb"));
    if (!opened) {
      LUM_LOG(kLogError, "Upload", "read file error");
      return result;
    }
    stream = opened.get();
  }
  const curl_off_t size = SizeFromStart(stream);
  BuildHeaderList(transfer, lines);

  SetOption(transfer.handle, CURLOPT_READFUNCTION, &ReadFromFile);
  SetOption(transfer.handle, CURLOPT_UPLOAD, 1L);
  SetOption(transfer.handle, CURLOPT_URL, url.c_str());
  SetOption(transfer.handle, CURLOPT_UPLOAD, 1L);  // again (docs/compatibility.md, upload-order)
  SetOption(transfer.handle, CURLOPT_READDATA, stream);
  SetOption(transfer.handle, CURLOPT_INFILESIZE_LARGE, size);
  SetOption(transfer.handle, CURLOPT_ERRORBUFFER, &transfer.errorBuffer[0]);
  SetOption(transfer.handle, CURLOPT_CONNECTTIMEOUT, kUploadConnectTimeoutSeconds);
  SetOption(transfer.handle, CURLOPT_TIMEOUT, static_cast<long>(timeoutSeconds));
  if (limitSpeed != kNoSpeedLimit) {
    SetOption(transfer.handle, CURLOPT_MAX_SEND_SPEED_LARGE,
              static_cast<curl_off_t>(static_cast<std::int32_t>(limitSpeed)));
  }
  SetInterface(transfer.handle);
  SetSslOptions(transfer.handle);

  const bool done = transfer.Perform();
  result.code = static_cast<int>(transfer.status);
  if (opened) {
    opened.reset();
  } else {
    uploadFp = nullptr;  // a caller's stream serves one upload and stays open
  }
  transfer.headers.reset();
  if (!done) {
    LUM_LOG(kLogError, "Upload", "PUT failed for %s, resOps: %d, code: %ld, errorBuf: %s",
            curl_easy_strerror(transfer.outcome), transfer.outcome, transfer.status,
            transfer.errorBuffer);
    result.body = FailureText("PUT failed for: ", transfer.errorBuffer);
  }
  return result;
}

void LumCurlOrvOpsPrivate::BuildHeaderList(EasyTransfer& transfer, const HeaderLines& lines) {
  for (const std::string& line : lines) {
    AppendLine(transfer.headers, line.c_str());
  }
  if (transfer.headers) {
    SetOption(transfer.handle, CURLOPT_HTTPHEADER, transfer.headers.get());
    KeepEmptyValues(transfer.headers);
  }
}

// Verification is off with and without a client certificate (docs/compatibility.md, verification).
void LumCurlOrvOpsPrivate::SetSslOptions(const EasyHandle& handle) {
  SetOption(handle, CURLOPT_SSL_VERIFYPEER, 0L);
  SetOption(handle, CURLOPT_SSL_VERIFYHOST, 0L);
  if (sslInfoSet) {
    SetOption(handle, CURLOPT_CAINFO, caInfoPath.c_str());
    SetOption(handle, CURLOPT_SSLCERT, sslCertPath.c_str());
    SetOption(handle, CURLOPT_SSLKEY, sslKeyPath.c_str());
    SetOption(handle, CURLOPT_SSLKEYTYPE, "PEM");
    SetOption(handle, CURLOPT_SSLCERTTYPE, "PEM");
    SetKeyPasswordOption(handle, keyPassword);
  }
}

int LumCurlOrvOpsPrivate::Gzip(const std::string& text, char* destination, std::size_t capacity) {
  if (capacity > INT_MAX) {
    return 0;
  }
  return LumCompressAndDeCompress::GzipCompress(text.c_str(), static_cast<int>(text.length()),
                                                destination, static_cast<int>(capacity));
}

std::string LumCurlOrvOpsPrivate::GetDomain(const std::string& url) {
  std::size_t prefixLength = 0;
  if (Contains(url, "https://")) {
    prefixLength = std::strlen("https://");
  } else if (Contains(url, "http://")) {
    prefixLength = std::strlen("http://");
  } else {
    LUM_LOG(kLogError, "GetDomain", "invalid url:%s", url.c_str());
    return std::string();
  }
  // The length is that of an https URL's rest whichever scheme it is: an http URL of nothing but a
  // host loses its last character (docs/compatibility.md, host-cut).
  std::string domain = url.substr(prefixLength, url.length() - std::strlen("https://"));
  const std::size_t slash = domain.find('/');
  if (slash != std::string::npos) {
    domain.resize(slash);
  }
  return domain;
}

void LumCurlOrvOpsPrivate::SetDomainIp(const std::string& url, CURL* handle) {
  if (domainIp.empty() || handle == nullptr) {
    return;
  }
  std::string entry = GetDomain(url);
  if (entry.find(':') == std::string::npos) {
    if (Contains(url, "http://")) {
      entry += ":80";
    }
    if (Contains(url, "https://")) {
      entry += ":443";
    }
  }
  entry += ":" + domainIp;
  LUM_LOG(kLogInfo, "SetDomainIp", "Set domain=%s", entry.c_str());
  HeaderList list;
  AppendLine(list, entry.c_str());
  curl_easy_setopt(handle, CURLOPT_RESOLVE, list.get());
  (void)list.release();  // each pinned upload keeps its list (docs/compatibility.md, kept-pin)
}

void LumCurlOrvOpsPrivate::SetInterface(const EasyHandle& handle) {
  if (bindInterface.empty()) {
    UpdateInterfaceNameFromMac();
    if (bindInterface.empty()) {
      return;
    }
  }
  LUM_LOG(kLogInfo, "SetInterface", "Set interface=%s", bindInterface.c_str());
  SetOption(handle, CURLOPT_INTERFACE, bindInterface.c_str());
}

void LumCurlOrvOpsPrivate::UpdateInterfaceNameFromMac() {
  if (bindMac.empty()) {
    return;
  }
  bindInterface = LumNet::GetInterfaceName(bindMac);
  LUM_LOG(kLogInfo, "UpdateInterfaceNameFromMac", "Update interface name=%s",
          bindInterface.c_str());
}

void LumCurlOrvOpsPrivate::UpdateBindIpFromMac() {
  if (bindMac.empty()) {
    return;
  }
  std::string ipv4;
  std::string ipv6;
  if (LumNet::GetLocalIpAddress(bindMac, ipv4, ipv6) != 0) {
    LUM_LOG(kLogError, "UpdateBindIpFromMac", "Fail to get local ip from %s", bindMac.c_str());
    return;
  }
  if (LumNet::IsIPv4Address(ipv4)) {
    bindIp = ipv4;
  } else if (LumNet::IsIPv6Address(ipv6)) {
    bindIp = ipv6;
  }
  if (!bindIp.empty()) {
    LUM_LOG(kLogInfo, "UpdateBindIpFromMac", "update bindIP=%s", bindIp.c_str());
  } else {
    LUM_LOG(kLogError, "UpdateBindIpFromMac", "not valid ip found ipv4:%s, ipv6:%s, mac:%s",
            ipv4.c_str(), ipv6.c_str(), bindMac.c_str());
  }
}
