// LumCurlOrvOps: the client of the service back end and its object storage. Access tokens, data
// reports, log and video uploads, and JSON requests with custom header lists.

#ifndef LUM_CURL_ORV_OPS_H
#define LUM_CURL_ORV_OPS_H

#include <cstdio>
#include <list>
#include <mutex>
#include <string>

#include "LumJson.h"

class LumCurlOrvOpsPrivate;

// Every request is one blocking transfer on the caller's thread, over a new connection. Nothing is
// retried, redirects are not followed. No https server is ever verified, with or without
// SetSslInfo. libcurl uses the proxies that http_proxy, https_proxy, all_proxy and no_proxy name in
// the environment. A slow name look-up can exceed the time limits (docs/operations.md for both).
//
// A header list holds complete lines, "Name: value" (RFC 9110 section 5), sent unchanged in list
// order; they must not contain line breaks. "Name: " and "Name;" are sent as "Name:". "Name:"
// removes a header that libcurl would add. Any other line without a name and a colon is not sent.
// https://curl.se/libcurl/c/CURLOPT_HTTPHEADER.html
//
// Results of the operations that return int:
//        0  done
//    -9999  the object has no private part, which no constructor leaves; nothing was sent
//   -10000  anything else: memory, compression, the file, the transfer, or the HTTP status
//
// Thread safety: requests may run in parallel, on one object or several, with the exceptions at
// SetFp, SetBindMac and compress-and-upload. GetLastErrorBody and UpdateLastError may be called at
// any time. No other setter may run while another thread uses the same object. RefreshToken and the
// uploads do not set CURLOPT_NOSIGNAL (docs/threads-and-signals.md).
//
// Exceptions: std::bad_alloc when memory runs out and std::system_error when a mutex cannot be
// locked; nothing else.
class __attribute__((visibility("default"))) LumCurlOrvOps {
 public:
  LumCurlOrvOps();

  // Calls curl_global_cleanup(), whether or not the object ever called CurlGlobalInit. libcurl
  // counts: initialise it once for the process, and once on each object.
  // https://curl.se/libcurl/c/curl_global_cleanup.html
  ~LumCurlOrvOps();

  LumCurlOrvOps(const LumCurlOrvOps&) = delete;
  LumCurlOrvOps& operator=(const LumCurlOrvOps&) = delete;

  // Initialises libcurl for the process, on the first call of each object:
  // curl_global_init(CURL_GLOBAL_ALL). Call it at start-up, before the first request and before
  // other threads exist. The result is not reported; LumCurlHttp::CurlGlobalInit returns it.
  void CurlGlobalInit();

  // The host of `url` with its port and user: the text after the scheme up to the next "/". Empty,
  // with a log line, when the URL contains neither "https://" nor "http://". Kept oddities: an http
  // URL without a "/" after the host loses the host's last character, and "https://" counts
  // anywhere in the URL.
  static std::string GetDomain(const std::string& url);

  // --- Settings. Each holds for every later request until it is replaced. ---

  // The "Date" (RFC 9110 section 6.6.1) and "Authorization" values of the two-argument UploadLog,
  // sent unchanged: the class does not sign. An empty authorisation is ignored.
  void SetUploadLogDate(const std::string& date);
  void SetUploadLogAuthorisation(const std::string& authorisation);

  // The "x-zun-security-token" value of a signed UploadLog; empty sends no such line.
  void SetSecurityToken(const std::string& token);

  // The IPv4 or IPv6 address that an upload connects to instead of resolving its host; empty
  // resolves as usual. The host is GetDomain's: where that differs from the URL's, nothing is
  // pinned, or libcurl refuses the entry and the upload fails. Both functions set the same value.
  // Each pinned upload keeps a little memory for the life of the process (docs/operations.md).
  // https://curl.se/libcurl/c/CURLOPT_RESOLVE.html
  void SetSwiftIp(const std::string& ip);
  void SetDomainIp(const std::string& ip);

  // The network interface of all requests, by name ("eth0"). Takes precedence over SetBindMac;
  // empty leaves it to SetBindMac. https://curl.se/libcurl/c/CURLOPT_INTERFACE.html
  void SetBindInterface(const std::string& interfaceName);

  // The same by MAC address: six hex pairs with ":" or "-". A request looks the name up and stores
  // it; until a name is stored, requests of the object must not run in parallel. A MAC that no
  // interface has binds nothing. A stored name stays until SetBindInterface("").
  void SetBindMac(const std::string& mac);

  // Stores a local address that no request reads.
  void SetBindIp(const std::string& ip);

  // Stores the paths of three PEM files and the key's pass phrase. From then on the client
  // certificate is offered to every https server.
  //
  // The paths are always stored. `keyPassword` is `keyPasswordLen` bytes (0 to 2048), copied
  // without a terminator: count the terminating zero in, or a shorter phrase keeps the tail of a
  // longer one. For a key without a pass phrase give any pointer but null and a length of 0. A null
  // `keyPassword` or a length above 2048 is logged; pass phrase and certificate then stay as they
  // were. A negative length copies nothing and counts as done. The pass phrase is never wiped.
  void SetSslInfo(std::string caCertPath, std::string clientCertPath, std::string clientKeyPath,
                  unsigned char* keyPassword, int keyPasswordLen);

  // The highest speed of an upload, in bytes per second. 0 and negative numbers set no limit; the
  // default is -1.
  void SetLimitSpeed(int bytesPerSecond);

  // The stream that the next upload reads instead of its file, from start to end. A stream that
  // cannot seek (a pipe) is sent in chunks from its current position. It serves one upload, is
  // never closed, and stays set when no transfer was started; null unsets it. While it is set, no
  // two uploads of the object may run in parallel.
  void SetFp(FILE* stream);

  // --- The last error: the response body of the latest failed report. ---

  // A copy; empty when no report has failed. A success does not clear it.
  std::string GetLastErrorBody();

  // Replaces it, as failed reports do. An empty text clears it.
  void UpdateLastError(const std::string& body);

  // --- Data reports: POST of a JSON document. ---
  //
  // Headers: "Content-Type: application/json", "X-Auth-Token: <token>"; a gzip report adds
  // "X-ORV-ACCESS-ID: <accessId>" and "Content-Encoding: gzip". The body is the document's
  // ToStyledString, gzip-compressed (RFC 1952) in a gzip report. A non-empty `topicName` is set as
  // the member "topic_name" of the document that is sent, not of the caller's.
  //
  // Returns 0 for the statuses 200 and 204, also when the transfer fails after the status. Any
  // other outcome is logged, sets the last error to the response body or the failure text, and
  // returns -10000.

  // Plain report. The time limit is 5 seconds, or `timeout` seconds; 0 and values above 2147483 are
  // no limit.
  int ReportData(std::string url, LumJson::Value data, std::string token, std::string topicName);
  int ReportData(std::string url, LumJson::Value data, std::string token, unsigned int timeout,
                 std::string topicName);

  // Gzip report. The time limit is 4 seconds. A document of fewer than about 19 styled bytes cannot
  // be compressed: that is logged and returns -10000; the last error stays.
  int ReportDataWithGzip(const std::string& url, const LumJson::Value& data,
                         const std::string& token, const std::string& accessId);

  // The same with the access identifier from the document's member "accessId". When that is missing
  // or empty, a warning is logged and the identifier sent is empty; a missing member is sent as
  // null.
  int ReportDataWithGzip(const std::string& url, LumJson::Value data, const std::string& token);

  // The same; the number is ignored.
  int ReportDataWithGzip(std::string url, LumJson::Value data, std::string token, unsigned int);

  // With an access identifier and a topic.
  int ReportDataWithGzip(const std::string& url, LumJson::Value data, const std::string& token,
                         const std::string& accessId, std::string topicName);

  // --- Access tokens. The class does not keep them. ---
  //
  // Both send `request`'s ToStyledString and return the response document when the status is 200.
  // Any other outcome is logged and returns null. (Without a private part: the string "".)

  // POST with "Content-Type: application/json". The time limit is 5 seconds. A status other than
  // 200 logs the whole `request`.
  LumJson::Value GetToken(std::string url, LumJson::Value request);

  // PUT with "Content-Type: application/json" and "X-Auth-Token: <token>". The time limit is 4
  // seconds.
  LumJson::Value RefreshToken(std::string url, LumJson::Value request, std::string token);

  // --- JSON requests with the caller's header lines. libcurl adds Host, Accept and, to a Post,
  // Content-Length, Expect above 1 MiB, and "Content-Type: application/x-www-form-urlencoded"
  // unless a line is a Content-Type. ---
  //
  // Both return the response document when the status is 200. Any other outcome, a body that is not
  // JSON or not complete among them, is logged and returns null. `responseCode` is set to the HTTP
  // status; 0 when no response came, 100 when only an interim one did; -1 when no transfer was
  // started. Without a private part it is unchanged.

  // The time limit is 4 seconds.
  LumJson::Value Get(const std::string& url, const std::list<std::string>& headers,
                     int& responseCode);

  // Sends `postBody` unchanged. The time limit is 5 seconds.
  LumJson::Value Post(const std::string& url, const std::string& postBody,
                      const std::list<std::string>& headers, int& responseCode);

  // --- Log address and uploads. ---

  // Asks where to upload a log file: GET of url?access_id=<accessId>&file_name=<fileName> with
  // "Content-Type: application/json" and "X-Auth-Token: <authToken>". Percent-encode both values:
  // "#" ends the query, and libcurl refuses a blank or a control byte. The "?" is added even to a
  // URL that has one. The time limit is 4 seconds.
  // Returns the response document when the status is 200. Any other outcome is logged and returns
  // null. (Without a private part: the string "".)
  LumJson::Value GetLogAddress(std::string url, std::string accessId, std::string authToken,
                               std::string fileName);

  // The uploads PUT the file `filePath`, or the stream of SetFp, to `url`. With a stream the path
  // must still name a file in a directory that exists. The server's response goes to the process's
  // standard output. The time limit is `timeoutSeconds`; 0 and values above 2147483 are no limit.
  // A named pipe has no size: it is sent in chunks, and waiting for it has no limit. The file must
  // not change during its upload (docs/operations.md).
  //
  // Each returns 0 for the status 200, also when the transfer fails after it. Any other outcome is
  // logged and returns -10000.

  // With the caller's header lines.
  int UploadLog(std::string url, std::string filePath, unsigned int timeoutSeconds,
                const std::list<std::string>& headers);

  // With "Content-Type: application/zip".
  int UploadLog(std::string url, std::string filePath, unsigned int timeoutSeconds);

  // With "Content-Type: video/mp4".
  int UploadVideoFile(std::string url, std::string filePath, unsigned int timeoutSeconds);

  // Signed by the settings: "Authorization", "Date" and, if set, "x-zun-security-token", and no
  // content type. When the authorisation or the date is empty: "Content-Type: application/zip"
  // alone. The time limit is 60 seconds.
  int UploadLog(std::string url, std::string filePath);

  // --- Compress and upload: pack into a gzip-compressed tar archive, upload the archive with the
  // two-argument UploadLog, remove the archive. The files that are packed are not changed. ---
  //
  // Each failed step is logged. Failed packing or removal returns -10000. After a failed upload a
  // directory keeps its archive and returns -10000; a group and a file remove theirs and return
  // 0, so that only the log shows it. A missing private part is a failed upload.
  //
  // No two calls that make the same archive may run in parallel, on any objects.

  // Packs the files and directories that `fileGroup` lists, one path a line, into
  // `archiveBase`.tar.gz. Each is stored under its base name; duplicate names are refused.
  int UploadLogFileGorupForCompress(std::string url, std::string fileGroup,
                                    std::string archiveBase);

  // Packs a directory into `dirPath`.tar.gz; "DIR/" makes "DIR/.tar.gz".
  int UploadLogDirPathForCompress(std::string url, std::string dirPath);

  // Packs one file into `filePath`.tar.gz.
  int UploadLogFileForCompress(std::string url, std::string filePath);

 private:
  LumCurlOrvOpsPrivate* d_pointer;  // owned
  std::mutex lastErrorMutex;        // guards lastErrorBody
  std::string lastErrorBody;
};

#endif  // LUM_CURL_ORV_OPS_H
