// LumCurlOrvOps: the client of the service back end and of its object storage. Access tokens, data
// reports, log and video uploads, and JSON requests with header lists of the caller's.

#ifndef LUM_CURL_ORV_OPS_H
#define LUM_CURL_ORV_OPS_H

#include <cstdio>
#include <list>
#include <mutex>
#include <string>

#include "LumJson.h"

class LumCurlOrvOpsPrivate;

// Every request is one blocking transfer on the caller's thread, over a connection of its own: no
// connection is reused, nothing is retried, redirects are not followed. Nothing about an https
// server is ever verified, with or without SetSslInfo. Connecting may take 4 seconds, 10 for an
// upload; each operation says how long its whole transfer may take. A name look-up that is slow can
// exceed both (docs/operations.md). libcurl goes through the proxies that the environment names:
// http_proxy, https_proxy, all_proxy, no_proxy. https://curl.se/libcurl/c/libcurl-env.html
//
// A header list holds complete lines, "Name: value" (RFC 9110 section 5), sent in list order. A
// line with an empty value, "Name: ", is sent as "Name:", and so is "Name;"; "Name:" without the
// blank removes a header that libcurl would add. Other lines without a colon, and lines that begin
// with one, are not sent. https://curl.se/libcurl/c/CURLOPT_HTTPHEADER.html
// All others are sent as they stand: whoever puts text from elsewhere into a line, a token for
// instance, makes sure that it holds no line break.
//
// Results of the operations that return int:
//        0  done
//    -9999  the object has no private part (no constructor leaves it so); nothing was sent.
//           Compress-and-upload takes that for a failed upload.
//   -10000  anything else: memory, compression, the file, the transfer, or the HTTP status
//
// Thread safety: requests may run on any number of threads, on one object or several, except where
// SetFp or SetBindMac say otherwise, and except two calls that make one archive, on whatever
// objects. RefreshToken and the uploads do not set CURLOPT_NOSIGNAL, all others do
// (docs/threads-and-signals.md). GetLastErrorBody and UpdateLastError may be called at any time.
// Every other setter must not run while another thread uses the same object.
//
// Exceptions: std::bad_alloc when memory runs out and std::system_error when a mutex cannot be
// locked; nothing else.
class __attribute__((visibility("default"))) LumCurlOrvOps {
 public:
  LumCurlOrvOps();

  // Also calls curl_global_cleanup(), whoever initialised libcurl and whoever still uses it: a
  // process in which other users of libcurl outlive this object holds an initialisation of its own
  // (curl_global_init counts) and calls CurlGlobalInit on each object: the destructor of one that
  // never did takes the process's own away. https://curl.se/libcurl/c/curl_global_cleanup.html
  ~LumCurlOrvOps();

  LumCurlOrvOps(const LumCurlOrvOps&) = delete;
  LumCurlOrvOps& operator=(const LumCurlOrvOps&) = delete;

  // Initialises libcurl for the process, on the first call of each object:
  // curl_global_init(CURL_GLOBAL_ALL). To be called before the first request, at start-up, before
  // other threads exist. Nothing else in the class does it. A failure shows nowhere and is not
  // tried again: LumCurlHttp::CurlGlobalInit returns libcurl's result.
  void CurlGlobalInit();

  // The host of `url`, with its port and user where they are written: the text behind the scheme up
  // to the next "/". Empty, with a log line, when the URL holds neither "https://" nor "http://".
  // An http URL without any "/" behind its host loses the host's last character. "https://" is
  // looked for anywhere in the URL: "http://HOST/?u=https://x" gives what is left of "HOST" without
  // its first character. Needs no object.
  static std::string GetDomain(const std::string& url);

  // --- Settings. Each serves every later request that reads it, until it is replaced. ---

  // The "Date" (RFC 9110 section 6.6.1) and "Authorization" values of the two-argument UploadLog,
  // sent as given: the class neither reads the clock nor signs. An empty authorisation is ignored.
  void SetUploadLogDate(const std::string& date);
  void SetUploadLogAuthorisation(const std::string& authorisation);

  // The "x-zun-security-token" value of a signed UploadLog; empty sends no such line.
  void SetSecurityToken(const std::string& token);

  // The address, IPv4 or IPv6 text, that an upload connects to in place of what its URL's host
  // resolves to; empty resolves as usual. The host is GetDomain's: where that is not the URL's own,
  // nothing is pinned, or libcurl refuses the entry and the upload fails. Both setters write one
  // setting: the last call wins. Each pinned upload keeps one small list for the life of the
  // process (80 bytes, and more for long names). https://curl.se/libcurl/c/CURLOPT_RESOLVE.html
  void SetSwiftIp(const std::string& ip);
  void SetDomainIp(const std::string& ip);

  // The network interface that requests leave from, by name ("eth0"). It takes precedence over
  // SetBindMac; when empty, that decides. https://curl.se/libcurl/c/CURLOPT_INTERFACE.html
  void SetBindInterface(const std::string& interfaceName);

  // The same, by the interface's MAC address, six hex pairs with ":" or "-". The name is looked up
  // by a request while no name is stored, and stored: until one request has done so, requests of
  // this object must not run in parallel. A MAC that no interface has binds to none. A name once
  // found stays: SetBindInterface("") has the next request look a new MAC up.
  void SetBindMac(const std::string& mac);

  // A local address, stored; no request reads it.
  void SetBindIp(const std::string& ip);

  // Stores the PEM files and the key's pass phrase, and from then on offers the client certificate
  // to https servers. The three paths are stored always. `keyPassword` is `keyPasswordLen` bytes (0
  // to 2048), copied here over the one stored; no terminator is added, so a shorter phrase keeps
  // the tail of a longer one unless its own terminating zero is counted in. It serves all later
  // requests and is not wiped. A null `keyPassword` or a length above 2048 is logged, and leaves
  // the pass phrase as it was and the client certificate switched off if it was. A negative length
  // copies nothing and counts as done. A key without a pass phrase takes any pointer but null and a
  // length of 0.
  void SetSslInfo(std::string caCertPath, std::string clientCertPath, std::string clientKeyPath,
                  unsigned char* keyPassword, int keyPasswordLen);

  // The highest speed of an upload, in bytes per second; 0 and every negative number, the
  // default -1 among them, set no limit.
  void SetLimitSpeed(int bytesPerSecond);

  // The stream that the next upload reads in place of its file, from the start to the end. One that
  // cannot seek, a pipe, is sent from where it stands, in chunks, since nobody knows its size. It
  // is read by one upload, never closed, and stays the caller's. No two uploads of one object may
  // run at once while it is set. An upload that ends before its transfer begins leaves it set. Null
  // takes it back.
  void SetFp(FILE* stream);

  // --- The last error: the response body of the latest report that failed. ---

  // A copy of it; empty when no report has failed. A report that succeeds does not clear it.
  std::string GetLastErrorBody();

  // Replaces it. Reports that fail call this; a caller may, with an empty text, to clear it.
  void UpdateLastError(const std::string& body);

  // --- Data reports: POST of a JSON document. ---
  //
  // Headers: "Content-Type: application/json", "X-Auth-Token: <token>"; a gzip report adds
  // "X-ORV-ACCESS-ID: <accessId>" and "Content-Encoding: gzip". The body is the styled text of the
  // document (LumJson::Value::ToStyledString), gzip-compressed (RFC 1952) for a gzip report. A
  // `topicName` that is not empty is added to the operation's own copy of the document as the
  // member "topic_name", in place of one of that name.
  //
  // Returns 0 when the back end answered 200 or 204. Any other outcome of the transfer is logged,
  // makes the response body (or the transfer's failure text) the last error, and returns -10000. A
  // transfer that breaks after a status of 200 or 204 has arrived counts as done.

  // Plain report; the whole transfer may take 5 seconds, or `timeout` seconds (0, and what is above
  // 2147483, sets no limit).
  int ReportData(std::string url, LumJson::Value data, std::string token, std::string topicName);
  int ReportData(std::string url, LumJson::Value data, std::string token, unsigned int timeout,
                 std::string topicName);

  // Gzip report; the whole transfer may take 4 seconds. A document of fewer than about 19 styled
  // bytes does not fit its compression buffer: it is logged and returns -10000, last error
  // unchanged.
  int ReportDataWithGzip(const std::string& url, const LumJson::Value& data,
                         const std::string& token, const std::string& accessId);

  // The same with the access identifier taken from the document's member "accessId". Where that is
  // missing or empty, a warning is logged and the report is sent with an empty identifier. A member
  // that is missing is then part of the document that is sent, as null.
  int ReportDataWithGzip(const std::string& url, LumJson::Value data, const std::string& token);

  // The same again; the number is ignored.
  int ReportDataWithGzip(std::string url, LumJson::Value data, std::string token, unsigned int);

  // The form with an access identifier, with a topic.
  int ReportDataWithGzip(const std::string& url, LumJson::Value data, const std::string& token,
                         const std::string& accessId, std::string topicName);

  // --- Access tokens. The class does not keep them: the answer is the caller's to read. ---
  //
  // Both send the styled text of `request`, and return the answer when its status is 200 and it is
  // JSON. Any other outcome is logged and returns null. (Without a private part: the string "".)

  // POST with "Content-Type: application/json"; the whole transfer may take 5 seconds. A status
  // other than 200 puts the whole text of `request` into the log.
  LumJson::Value GetToken(std::string url, LumJson::Value request);

  // PUT with "Content-Type: application/json" and "X-Auth-Token: <token>"; the whole transfer may
  // take 4 seconds.
  LumJson::Value RefreshToken(std::string url, LumJson::Value request, std::string token);

  // --- JSON requests with the caller's header lines, beside which libcurl adds Host, Accept and,
  // for a Post, Content-Length, Expect above 1 MiB and, where no line is a Content-Type,
  // "application/x-www-form-urlencoded". ---
  //
  // Both return the answer when its status is 200 and it is JSON; any other outcome is logged and
  // returns null. `responseCode` gets the HTTP status; 0 when no answer came, or 100 when no more
  // than an interim answer did; -1 when no transfer could be started; without a private part it
  // keeps its value. An answer of 200 that is not JSON, or that breaks off, shows as null with 200.

  // The whole transfer may take 4 seconds.
  LumJson::Value Get(const std::string& url, const std::list<std::string>& headers,
                     int& responseCode);

  // Sends `postBody` as it stands; 5 seconds.
  LumJson::Value Post(const std::string& url, const std::string& postBody,
                      const std::list<std::string>& headers, int& responseCode);

  // --- Log address and uploads. ---

  // Asks where a log file is to be put: GET of url?access_id=<accessId>&file_name=<fileName> with
  // "Content-Type: application/json" and "X-Auth-Token: <authToken>". Neither value is
  // percent-encoded, and the "?" is added even to a URL that has one. A "#" ends the query: what
  // stands behind it is not sent. A blank or a control byte makes a URL that libcurl refuses:
  // nothing is sent. The whole transfer may take 4 seconds.
  // Returns the answer when its status is 200 and it is JSON; any other outcome is logged and
  // returns null. (Without a private part: the string "".)
  LumJson::Value GetLogAddress(std::string url, std::string accessId, std::string authToken,
                               std::string fileName);

  // The uploads PUT the file `filePath` (or the stream of SetFp, in which case the path must still
  // be one that could be opened: in a directory that exists and no directory itself) to `url`. The
  // request announces the size that the file has at the start; a named pipe has none and is sent in
  // chunks, over HTTP/1.1 with "Transfer-Encoding: chunked". The server's reply goes to the
  // process's standard output. The whole transfer may take `timeoutSeconds` (0, and what is above
  // 2147483, sets no limit), but a pipe is waited for without a limit: for its other end before the
  // transfer, and for its bytes during it.
  //
  // When the file shrinks meanwhile, the upload waits for its time limit and fails. When it grows,
  // libcurl 7.88 sends the whole of the read that reaches the announced size, and so more than was
  // announced, which servers take in different ways; nothing more when the size is a multiple of
  // what one read takes (64 KiB). libcurl 8.14 sends what was announced.
  //
  // Each returns 0 when the answer's status is 200; any other outcome is logged, -10000.

  // With the caller's header lines, beside libcurl's own.
  int UploadLog(std::string url, std::string filePath, unsigned int timeoutSeconds,
                const std::list<std::string>& headers);

  // With "Content-Type: application/zip".
  int UploadLog(std::string url, std::string filePath, unsigned int timeoutSeconds);

  // With "Content-Type: video/mp4".
  int UploadVideoFile(std::string url, std::string filePath, unsigned int timeoutSeconds);

  // Signed by the settings: "Authorization: ", "Date: " and, where set, "x-zun-security-token: "
  // with their values and no content type. Where the authorisation or the date is empty:
  // "Content-Type: application/zip" alone. The whole transfer may take 60 seconds.
  int UploadLog(std::string url, std::string filePath);

  // --- Compress and upload: pack into a gzip-compressed tar archive, upload the archive with the
  // two-argument UploadLog, remove the archive. What was packed is never touched. ---
  //
  // Each step that fails is logged. Compression or removal that fails returns -10000. An upload
  // that fails returns -10000 and keeps the archive for a directory; for a group and a file the
  // archive is removed all the same and the result is 0: only the log tells of the failed upload.
  //
  // No two calls that make the same archive may run at once, on one object or on two.

  // Packs the files and directories that `fileGroup` lists, one path a line, into
  // `archiveBase`.tar.gz. Each is stored under its base name; two of one name are refused.
  int UploadLogFileGorupForCompress(std::string url, std::string fileGroup,
                                    std::string archiveBase);

  // Packs a directory into `dirPath`.tar.gz. A trailing "/" is not stripped: "DIR/" makes the
  // archive "DIR/.tar.gz".
  int UploadLogDirPathForCompress(std::string url, std::string dirPath);

  // Packs one file into `filePath`.tar.gz.
  int UploadLogFileForCompress(std::string url, std::string filePath);

 private:
  LumCurlOrvOpsPrivate* d_pointer;  // owned
  std::mutex lastErrorMutex;        // guards lastErrorBody
  std::string lastErrorBody;
};

#endif  // LUM_CURL_ORV_OPS_H
