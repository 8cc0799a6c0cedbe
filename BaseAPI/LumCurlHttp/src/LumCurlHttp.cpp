// LumCurlHttp: checks arguments, turns the engine's results into documents, downloads files.

#include "LumCurlHttp.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "CurlEasy.h"
#include "File.h"
#include "Log.h"
#include "LumCurlHttpPrivate.h"
#include "LumFileSys.h"
#include "ResultCodes.h"

using namespace lumhttp;

namespace {

constexpr char kLogPath[] = "BaseAPI/LumCurlHttp/src/LumCurlHttp";

// Not the library's version (docs/compatibility.md, user-agent).
constexpr char kUserAgent[] = "QVcurlHttp/0.1.2";
constexpr long kDownloadTimeoutSeconds = 60;

// libcurl hands over 16 KiB at a time; stdio's own buffer would write each of them. A buffer beyond
// what stays in the processor's cache costs more than the writes that it saves.
constexpr std::size_t kFileBufferSize = 65536;

// libcurl's write callback of a download; `user` is the open file.
std::size_t WriteToFile(char* data, std::size_t size, std::size_t count, void* user) {
  return std::fwrite(data, size, count, static_cast<FILE*>(user));
}

// Fills `reply` and `responseCode` from the engine's result. A failed transfer has been logged and
// its text is not parsed; any HTTP status has its body parsed (docs/compatibility.md, any-status).
void ReadReply(const char* function, const HttpResult& result, LumJson::Value& reply,
               int& responseCode) {
  responseCode = result.code;
  if (result.code == -1) {
    return;
  }
  if (!reply.Parse(result.body)) {
    responseCode = -1;
    LUM_LOG(kLogError, function, "json parse(%s) failed", result.body.c_str());
  }
}

}  // namespace

int LumCurlHttp::CurlGlobalInit() {
  return curl_global_init(CURL_GLOBAL_ALL);
}

LumCurlHttp::LumCurlHttp() : d_pointer(new LumCurlHttpPrivate) {}

LumCurlHttp::~LumCurlHttp() {
  delete d_pointer;
}

void LumCurlHttp::SetHeaders(const std::string& headers) {
  if (d_pointer == nullptr || headers.empty()) {
    LUM_LOG(kLogError, "SetHeaders", "d_pointer is null or headers is empty");
    return;
  }
  d_pointer->SetHeaders(headers);
}

LumJson::Value LumCurlHttp::Get(const std::string& url, const std::string& unused, bool useSsl,
                                int& responseCode) {
  LumJson::Value reply;
  if (d_pointer == nullptr || url.empty()) {
    LUM_LOG(kLogError, "Get", "GET url is empty");
    return reply;
  }
  ReadReply("Get", d_pointer->Get(url, unused, useSsl), reply, responseCode);
  return reply;
}

LumJson::Value LumCurlHttp::Post(const std::string& url, const std::string& body, bool useSsl,
                                 int& responseCode) {
  LumJson::Value reply;
  if (d_pointer == nullptr || url.empty()) {
    LUM_LOG(kLogError, "Post", "POST url is empty");
    return reply;
  }
  ReadReply("Post", d_pointer->Post(url, body, useSsl), reply, responseCode);
  return reply;
}

void LumCurlHttp::SetSslInfo(std::string caCertPath, std::string clientCertPath,
                             std::string clientKeyPath, unsigned char* keyPassword,
                             int keyPasswordLen) {
  if (d_pointer == nullptr) {
    LUM_LOG(kLogError, "SetSslInfo", "d_LumCurlHttpPrivate is null");
    return;
  }
  // The paths take effect even where the pass phrase is refused (docs/compatibility.md,
  // phrase-paths).
  d_pointer->m_clientCertPath = std::move(clientCertPath);
  d_pointer->m_clientKeyPath = std::move(clientKeyPath);
  d_pointer->m_caCertPath = std::move(caCertPath);
  if (keyPassword == nullptr) {
    // docs/compatibility.md, log-spelling; so below.
    LUM_LOG(kLogError, "SetSslInfo", "invalid certPaas");
    return;
  }
  if (!StoreKeyPassword(d_pointer->m_keyPassword, keyPassword, keyPasswordLen)) {
    LUM_LOG(kLogError, "SetSslInfo", "falied to strcpy_s");
  }
}

int LumCurlHttp::DownloadFile(std::string url, std::string path) {
  if (d_pointer == nullptr) {
    LUM_LOG(kLogError, "DownloadFile", "d_LumCurlHttpPrivate is null");
    return kNoPrivate;
  }
  LUM_LOG(kLogInfo, "DownloadFile", "download file %s to %s", url.c_str(), path.c_str());
  EasyHandle handle(curl_easy_init());
  if (!handle) {
    LUM_LOG(kLogError, "DownloadFile", "curl_easy_init failed");
    return kFailed;
  }
  if (!LumDir::LumRealPath(path.c_str(), static_cast<int>(std::strlen(path.c_str())))) {
    // A refused path keeps its handle (docs/compatibility.md, kept-download).
    (void)handle.release();
    return kFailed;
  }
  const std::unique_ptr<char[]> buffer(new char[kFileBufferSize]);  // outlives the file
  File file(std::fopen(path.c_str(), "wb"));
  if (!file) {
    handle.reset();
    LUM_LOG(kLogError, "DownloadFile", "fopen failed");
    return kFailed;
  }
  (void)std::setvbuf(file.get(), buffer.get(), _IOFBF, kFileBufferSize);
  HeaderList headers = JsonHeaderLines();

  SetOption(handle, CURLOPT_USERAGENT, &kUserAgent[0]);
  SetOption(handle, CURLOPT_HTTPHEADER, headers.get());
  SetOption(handle, CURLOPT_URL, url.c_str());
  SetOption(handle, CURLOPT_READFUNCTION, static_cast<curl_read_callback>(nullptr));
  // Nothing is verified; libcurl gets the CA file all the same (docs/compatibility.md,
  // download-order).
  SetOption(handle, CURLOPT_SSL_VERIFYHOST, 0L);
  SetOption(handle, CURLOPT_SSL_VERIFYPEER, 0L);
  SetOption(handle, CURLOPT_CAINFO, d_pointer->m_caCertPath.c_str());
  SetOption(handle, CURLOPT_WRITEFUNCTION, &WriteToFile);
  SetOption(handle, CURLOPT_WRITEDATA, file.get());
  SetOption(handle, CURLOPT_NOSIGNAL, 1L);
  SetOption(handle, CURLOPT_CONNECTTIMEOUT, kDownloadTimeoutSeconds);
  SetOption(handle, CURLOPT_TIMEOUT, kDownloadTimeoutSeconds);

  CURLcode outcome = curl_easy_perform(handle.get());
  // What stdio still holds may not fit the disk either: that is a write that failed.
  if (outcome == CURLE_OK && std::fflush(file.get()) != 0) {
    outcome = CURLE_WRITE_ERROR;
  }
  headers.reset();
  if (outcome != CURLE_OK) {
    LUM_LOG(kLogError, "DownloadFile", "curl_easy_perform() failed: %s",
            curl_easy_strerror(outcome));
    handle.reset();
    file.reset();
    return kFailed;
  }
  handle.reset();
  file.reset();
  LUM_LOG(kLogInfo, "DownloadFile", "download succeed, path: %s", path.c_str());
  return kDone;
}
