// LumCurlOrvOps: settings, reports, tokens, JSON requests and uploads over the engine.

#include "LumCurlOrvOps.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

#include "Log.h"
#include "LumBoundsCheck.h"
#include "LumCurlOrvOpsPrivate.h"
#include "LumFileSys.h"
#include "ResultCodes.h"

using namespace lumhttp;

namespace {

constexpr char kLogPath[] = "BaseAPI/LumCurlHttp/src/LumCurlOrvOps";

constexpr unsigned int kJsonTimeoutSeconds = 5;
constexpr unsigned int kSignedUploadTimeoutSeconds = 60;

constexpr char kJsonContent[] = "Content-Type: application/json";
constexpr char kZipContent[] = "Content-Type: application/zip";
constexpr char kVideoContent[] = "Content-Type: video/mp4";
constexpr char kGzipEncoding[] = "Content-Encoding: gzip";
constexpr char kAuthToken[] = "X-Auth-Token: ";
constexpr char kAccessId[] = "X-ORV-ACCESS-ID: ";
constexpr char kAuthorization[] = "Authorization: ";
constexpr char kDate[] = "Date: ";
constexpr char kSecurityToken[] = "x-zun-security-token: ";

using HeaderLines = LumCurlOrvOpsPrivate::HeaderLines;

// A list of its arguments, made in place: an initializer_list would have each line copied.
template <typename... Line>
HeaderLines ListOf(Line&&... lines) {
  HeaderLines list;
  (list.emplace_back(std::forward<Line>(lines)), ...);
  return list;
}

struct Free {
  void operator()(char* buffer) const { std::free(buffer); }
};
using MallocBuffer = std::unique_ptr<char, Free>;

// Reports alone take 204 for success too (docs/compatibility.md, status-204).
bool ReportAccepted(int status) {
  return status == 200 || status == 204;
}

// Both plain reports. `data` is the report's own document.
int Report(LumCurlOrvOps& client, LumCurlOrvOpsPrivate& engine, const std::string& url,
           LumJson::Value& data, const std::string& token, unsigned int timeout,
           const std::string& topicName) {
  const HeaderLines lines = ListOf(kJsonContent, kAuthToken + token);
  if (!topicName.empty()) {
    data.AddJsonValue("topic_name", topicName);
  }
  const HttpResult result = engine.Post(url, data.ToStyledString(), lines, timeout);
  if (!ReportAccepted(result.code)) {
    LUM_LOG(kLogError, "ReportData", "Post failed url=%s, result=%d:%s", url.c_str(), result.code,
            result.body.c_str());
    client.UpdateLastError(result.body);
    return kFailed;
  }
  return kDone;
}

// Parses the body of status 200. False for any other status, whose log line is the operation's.
bool ReadAnswer(const char* function, const HttpResult& result, LumJson::Value& answer) {
  if (result.code != 200) {
    return false;
  }
  if (!answer.Parse(result.body)) {
    LUM_LOG(kLogError, function, "parse json body failed, json body: %s", result.body.c_str());
  }
  return true;
}

// The uploads that take a time limit. All log the same text, a video's too
// (docs/compatibility.md, log-video).
int UploadFile(const char* function, LumCurlOrvOpsPrivate& engine, const std::string& url,
               const std::string& filePath, unsigned int timeoutSeconds, const HeaderLines& lines) {
  if (engine.Upload(url, filePath, lines, timeoutSeconds).code != 200) {
    LUM_LOG(kLogError, function, "UploadLog failed");
    return kFailed;
  }
  return kDone;
}

// The last step of a compress-and-upload.
int RemoveArchive(const char* function, const std::string& archivePath) {
  if (LumFile::RemoveFile(archivePath) != 0) {
    LUM_LOG(kLogError, function, "remove file failed");
    return kFailed;
  }
  return kDone;
}

}  // namespace

// --- Life and settings ---

LumCurlOrvOps::LumCurlOrvOps() : d_pointer(new LumCurlOrvOpsPrivate) {}

LumCurlOrvOps::~LumCurlOrvOps() {
  delete d_pointer;
  d_pointer = nullptr;
  curl_global_cleanup();  // whoever initialised it (docs/compatibility.md, global-cleanup)
}

void LumCurlOrvOps::CurlGlobalInit() {
  if (d_pointer == nullptr || d_pointer->curlGlobalInited) {
    return;
  }
  curl_global_init(CURL_GLOBAL_ALL);
  d_pointer->curlGlobalInited = true;
}

std::string LumCurlOrvOps::GetDomain(const std::string& url) {
  return LumCurlOrvOpsPrivate::GetDomain(url);
}

void LumCurlOrvOps::SetUploadLogDate(const std::string& date) {
  LUM_LOG(kLogInfo, "SetUploadLogDate", "Set Date to %s", date.c_str());
  d_pointer->uploadLogDate = date;
}

void LumCurlOrvOps::SetUploadLogAuthorisation(const std::string& authorisation) {
  if (authorisation.empty()) {
    return;
  }
  LUM_LOG(kLogInfo, "SetUploadLogAuthorisation", "Set Auth");  // the value is a secret
  d_pointer->uploadLogAuthorisation = authorisation;
}

void LumCurlOrvOps::SetSecurityToken(const std::string& token) {
  d_pointer->securityToken = token;
}

void LumCurlOrvOps::SetSwiftIp(const std::string& ip) {
  LUM_LOG(kLogInfo, "SetSwiftIp", "set swift Ip=%s", ip.c_str());
  d_pointer->domainIp = ip;
}

void LumCurlOrvOps::SetDomainIp(const std::string& ip) {
  LUM_LOG(kLogInfo, "SetDomainIp", "set domain Ip=%s", ip.c_str());
  d_pointer->domainIp = ip;
}

void LumCurlOrvOps::SetBindInterface(const std::string& interfaceName) {
  if (interfaceName != d_pointer->bindInterface) {
    LUM_LOG(kLogInfo, "SetBindInterface", "set bind interface=%s", interfaceName.c_str());
    d_pointer->bindInterface = interfaceName;
  }
}

void LumCurlOrvOps::SetBindMac(const std::string& mac) {
  if (mac != d_pointer->bindMac) {
    LUM_LOG(kLogInfo, "SetBindMac", "set bind mac=%s", mac.c_str());
    d_pointer->bindMac = mac;
  }
}

void LumCurlOrvOps::SetBindIp(const std::string& ip) {
  if (ip != d_pointer->bindIp) {
    LUM_LOG(kLogInfo, "SetBindIp", "set bind Ip=%s", ip.c_str());
    d_pointer->bindIp = ip;
  }
}

void LumCurlOrvOps::SetSslInfo(std::string caCertPath, std::string clientCertPath,
                               std::string clientKeyPath, unsigned char* keyPassword,
                               int keyPasswordLen) {
  if (d_pointer == nullptr) {
    return;
  }
  // The paths are stored even where the pass phrase is refused (docs/compatibility.md,
  // phrase-paths).
  d_pointer->sslCertPath = std::move(clientCertPath);
  d_pointer->sslKeyPath = std::move(clientKeyPath);
  d_pointer->caInfoPath = std::move(caCertPath);
  if (keyPassword == nullptr) {
    // docs/compatibility.md, log-spelling; so below.
    LUM_LOG(kLogError, "SetSslInfo", "invalid certPaas");
    return;
  }
  if (!StoreKeyPassword(d_pointer->keyPassword, keyPassword, keyPasswordLen)) {
    LUM_LOG(kLogError, "SetSslInfo", "falied to strcpy_s");
    return;
  }
  d_pointer->sslInfoSet = true;
}

void LumCurlOrvOps::SetLimitSpeed(int bytesPerSecond) {
  if (d_pointer != nullptr) {
    d_pointer->SetLimitSpeed(static_cast<std::uint32_t>(bytesPerSecond));
  }
}

void LumCurlOrvOps::SetFp(FILE* stream) {
  if (d_pointer != nullptr) {
    d_pointer->SetFp(stream);
  }
}

// --- Last error ---

std::string LumCurlOrvOps::GetLastErrorBody() {
  const std::lock_guard<std::mutex> lock(lastErrorMutex);
  return lastErrorBody;
}

void LumCurlOrvOps::UpdateLastError(const std::string& body) {
  const std::lock_guard<std::mutex> lock(lastErrorMutex);
  lastErrorBody = body;
}

// --- Data reports ---

int LumCurlOrvOps::ReportData(std::string url, LumJson::Value data, std::string token,
                              std::string topicName) {
  if (d_pointer == nullptr) {
    return kNoPrivate;
  }
  return Report(*this, *d_pointer, url, data, token, kJsonTimeoutSeconds, topicName);
}

int LumCurlOrvOps::ReportData(std::string url, LumJson::Value data, std::string token,
                              unsigned int timeout, std::string topicName) {
  if (d_pointer == nullptr) {
    return kNoPrivate;
  }
  return Report(*this, *d_pointer, url, data, token, timeout, topicName);
}

// The worker: every other gzip form ends here.
int LumCurlOrvOps::ReportDataWithGzip(const std::string& url, const LumJson::Value& data,
                                      const std::string& token, const std::string& accessId) {
  if (d_pointer == nullptr) {
    return kNoPrivate;
  }
  const HeaderLines lines =
      ListOf(kJsonContent, kAuthToken + token, kAccessId + accessId, kGzipEncoding);
  const std::string text = data.ToStyledString();
  const int sourceLength = static_cast<int>(text.length());
  const std::size_t capacity = 2 * text.length();
  MallocBuffer buffer(static_cast<char*>(std::malloc(capacity)));
  if (!buffer) {
    LUM_LOG(kLogError, "ReportDataWithGzip", "malloc error, len=%d", static_cast<int>(capacity));
    return kFailed;
  }
  memset_s(buffer.get(), capacity, 0, capacity);
  const int gzipLength = LumCurlOrvOpsPrivate::Gzip(text, buffer.get(), capacity);
  if (gzipLength <= 0) {
    LUM_LOG(kLogError, "ReportDataWithGzip", "gzip compress error");
    return kFailed;
  }
  const HttpResult result =
      d_pointer->Post(url, buffer.get(), static_cast<std::uint32_t>(gzipLength), lines);
  buffer.reset();
  if (!ReportAccepted(result.code)) {
    LUM_LOG(kLogError, "ReportDataWithGzip",
            "Post failed url=%s, result=%d:%s src Length=%d, gzip length=%d", url.c_str(),
            result.code, result.body.c_str(), sourceLength, gzipLength);
    UpdateLastError(result.body);
    return kFailed;
  }
  LUM_LOG(kLogInfo, "ReportDataWithGzip", "Post to url=%s success, src Length=%d, gzip length=%d",
          url.c_str(), sourceLength, gzipLength);
  return kDone;
}

int LumCurlOrvOps::ReportDataWithGzip(const std::string& url, LumJson::Value data,
                                      const std::string& token) {
  // The look-up leaves a member that was missing in the document, as null.
  const std::string accessId = data["accessId"].JsonValueToString();
  if (accessId.empty()) {
    LUM_LOG(kLogWarning, "ReportDataWithGzip", "accessId is Empty");
  }
  return ReportDataWithGzip(url, data, token, accessId);
}

int LumCurlOrvOps::ReportDataWithGzip(std::string url, LumJson::Value data, std::string token,
                                      unsigned int /*ignored*/) {
  return ReportDataWithGzip(url, std::move(data), token);
}

int LumCurlOrvOps::ReportDataWithGzip(const std::string& url, LumJson::Value data,
                                      const std::string& token, const std::string& accessId,
                                      std::string topicName) {
  if (!topicName.empty()) {
    data.AddJsonValue("topic_name", topicName);
  }
  return ReportDataWithGzip(url, data, token, accessId);
}

// --- Access tokens ---

LumJson::Value LumCurlOrvOps::GetToken(std::string url, LumJson::Value request) {
  if (d_pointer == nullptr) {
    return LumJson::Value("");
  }
  const HeaderLines lines = ListOf(kJsonContent);
  const HttpResult result =
      d_pointer->Post(url, request.ToStyledString(), lines, kJsonTimeoutSeconds);
  LumJson::Value answer;
  if (!ReadAnswer("GetToken", result, answer)) {
    LUM_LOG(kLogError, "GetToken", "Post failed, url=%s, request=%s, result=%d, %s", url.c_str(),
            request.ToStyledString().c_str(), result.code, result.body.c_str());
  }
  return answer;
}

LumJson::Value LumCurlOrvOps::RefreshToken(std::string url, LumJson::Value request,
                                           std::string token) {
  if (d_pointer == nullptr) {
    return LumJson::Value("");
  }
  const HeaderLines lines = ListOf(kJsonContent, kAuthToken + token);
  const HttpResult result = d_pointer->Put(url, request.ToStyledString(), lines);
  LumJson::Value answer;
  if (!ReadAnswer("RefreshToken", result, answer)) {
    LUM_LOG(kLogError, "RefreshToken", "Put failed error:%d, %s", result.code, result.body.c_str());
  }
  return answer;
}

// --- JSON requests ---

LumJson::Value LumCurlOrvOps::Get(const std::string& url, const std::list<std::string>& headers,
                                  int& responseCode) {
  LumJson::Value answer;
  if (d_pointer == nullptr) {
    return answer;
  }
  const HttpResult result = d_pointer->Get(url, headers);
  responseCode = result.code;
  if (!ReadAnswer("Get", result, answer)) {
    LUM_LOG(kLogError, "Get", "Get failed, url=%s, result=%d, %s", url.c_str(), result.code,
            result.body.c_str());
  }
  return answer;
}

LumJson::Value LumCurlOrvOps::Post(const std::string& url, const std::string& postBody,
                                   const std::list<std::string>& headers, int& responseCode) {
  LumJson::Value answer;
  if (d_pointer == nullptr) {
    return answer;
  }
  const HttpResult result = d_pointer->Post(url, postBody, headers, kJsonTimeoutSeconds);
  responseCode = result.code;
  if (!ReadAnswer("Post", result, answer)) {
    LUM_LOG(kLogError, "Post", "Post failed, url=%s, result=%d, %s", url.c_str(), result.code,
            result.body.c_str());
  }
  return answer;
}

// --- Log address and uploads ---

LumJson::Value LumCurlOrvOps::GetLogAddress(std::string url, std::string accessId,
                                            std::string authToken, std::string fileName) {
  if (d_pointer == nullptr) {
    return LumJson::Value("");
  }
  const HeaderLines lines = ListOf(kJsonContent, kAuthToken + authToken);
  const std::string query = url + "?access_id=" + accessId + "&file_name=" + fileName;
  const HttpResult result = d_pointer->Get(query, lines);
  LumJson::Value answer;
  if (!ReadAnswer("GetLogAddress", result, answer)) {
    LUM_LOG(kLogError, "GetLogAddress", "Get from %s failed, json body: %s", url.c_str(),
            result.body.c_str());
  }
  return answer;
}

int LumCurlOrvOps::UploadLog(std::string url, std::string filePath, unsigned int timeoutSeconds,
                             const std::list<std::string>& headers) {
  if (d_pointer == nullptr) {
    return kNoPrivate;
  }
  return UploadFile("UploadLog", *d_pointer, url, filePath, timeoutSeconds, headers);
}

int LumCurlOrvOps::UploadLog(std::string url, std::string filePath, unsigned int timeoutSeconds) {
  if (d_pointer == nullptr) {
    return kNoPrivate;
  }
  return UploadFile("UploadLog", *d_pointer, url, filePath, timeoutSeconds, {kZipContent});
}

int LumCurlOrvOps::UploadVideoFile(std::string url, std::string filePath,
                                   unsigned int timeoutSeconds) {
  if (d_pointer == nullptr) {
    return kNoPrivate;
  }
  return UploadFile("UploadVideoFile", *d_pointer, url, filePath, timeoutSeconds, {kVideoContent});
}

int LumCurlOrvOps::UploadLog(std::string url, std::string filePath) {
  if (d_pointer == nullptr) {
    return kNoPrivate;
  }
  HeaderLines lines;
  if (!d_pointer->uploadLogAuthorisation.empty() && !d_pointer->uploadLogDate.empty()) {
    // A signed upload carries no content type (docs/compatibility.md, upload-signed).
    lines.push_back(kAuthorization + d_pointer->uploadLogAuthorisation);
    lines.push_back(kDate + d_pointer->uploadLogDate);
    if (!d_pointer->securityToken.empty()) {
      lines.push_back(kSecurityToken + d_pointer->securityToken);
    }
  } else {
    lines.emplace_back(kZipContent);
  }
  const HttpResult result = d_pointer->Upload(url, filePath, lines, kSignedUploadTimeoutSeconds);
  if (result.code != 200) {
    LUM_LOG(kLogError, "UploadLog", "UploadLog failed, code=%d, body=%s", result.code,
            result.body.c_str());
    return kFailed;
  }
  return kDone;
}

// --- Compress and upload ---

int LumCurlOrvOps::UploadLogFileGorupForCompress(std::string url, std::string fileGroup,
                                                 std::string archiveBase) {
  if (LumCompressAndDeCompress::CompressFileGroup(fileGroup.c_str(), archiveBase.c_str()) != 0) {
    LUM_LOG(kLogError, "UploadLogFileGorupForCompress", "compress file failed");
    return kFailed;
  }
  const std::string archivePath = archiveBase + ".tar.gz";
  if (UploadLog(url, archivePath) != kDone) {
    LUM_LOG(kLogError, "UploadLogFileGorupForCompress", "upload file failed");
  }
  return RemoveArchive("UploadLogFileGorupForCompress", archivePath);
}

int LumCurlOrvOps::UploadLogDirPathForCompress(std::string url, std::string dirPath) {
  if (LumCompressAndDeCompress::CompressFilePath(dirPath.c_str()) != 0) {
    LUM_LOG(kLogError, "UploadLogDirPathForCompress", "compress file failed");
    return kFailed;
  }
  const std::string archivePath = dirPath + ".tar.gz";
  if (UploadLog(url, archivePath) != kDone) {
    // A directory alone keeps its archive and reports the failure (docs/compatibility.md,
    // archive-kept).
    LUM_LOG(kLogError, "UploadLogDirPathForCompress", "upload file failed");
    return kFailed;
  }
  return RemoveArchive("UploadLogDirPathForCompress", archivePath);
}

int LumCurlOrvOps::UploadLogFileForCompress(std::string url, std::string filePath) {
  if (LumCompressAndDeCompress::CompressFile(filePath.c_str()) != 0) {
    LUM_LOG(kLogError, "UploadLogFileForCompress", "compress file failed");
    return kFailed;
  }
  const std::string archivePath = filePath + ".tar.gz";
  if (UploadLog(url, archivePath) != kDone) {
    LUM_LOG(kLogError, "UploadLogFileForCompress", "upload file failed");
  }
  return RemoveArchive("UploadLogFileForCompress", archivePath);
}
