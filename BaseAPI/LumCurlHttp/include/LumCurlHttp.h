// LumCurlHttp: a general HTTP(S) client. JSON over GET and POST, optionally with a client
// certificate and a custom header line, and downloads into a file.

#ifndef LUM_CURL_HTTP_H
#define LUM_CURL_HTTP_H

#include <string>

#include "LumJson.h"

class LumCurlHttpPrivate;

// Every request is one blocking transfer on the caller's thread, over a new connection. Nothing is
// retried, redirects are not followed. libcurl uses the proxies that http_proxy, https_proxy,
// all_proxy and no_proxy name in the environment. A slow name look-up can exceed the time limits
// (docs/operations.md for both).
//
// Thread safety: Get and Post may be called from any thread; an object runs one of them at a time,
// the others wait. DownloadFile does not wait. No setter may run while another thread uses the same
// object. Distinct objects are independent.
//
// Exceptions: std::bad_alloc when memory runs out and std::system_error when a mutex cannot be
// locked; nothing else.
class __attribute__((visibility("default"))) LumCurlHttp {
 public:
  // Initialises libcurl for the process: curl_global_init(CURL_GLOBAL_ALL), on every call. Call it
  // once at start-up, before other threads exist.
  // Returns libcurl's result: 0 (CURLE_OK) on success.
  // https://curl.se/libcurl/c/curl_global_init.html
  static int CurlGlobalInit();

  LumCurlHttp();
  ~LumCurlHttp();

  LumCurlHttp(const LumCurlHttp&) = delete;
  LumCurlHttp& operator=(const LumCurlHttp&) = delete;

  // Sets the header line of every later Get and Post. It replaces the two default lines,
  // "Content-Type: application/json" and "charsets: utf-8", and cannot be unset: an empty text is
  // logged and changes nothing. One line, "Name: value" (RFC 9110 section 5), sent unchanged; it
  // must not contain a line break.
  //
  // "Name: " and "Name;" are sent as "Name:". "Name:" removes a header that libcurl would add. Any
  // other text without a name and a colon is not sent. Without a Content-Type line a POST has
  // libcurl's own, "application/x-www-form-urlencoded".
  // https://curl.se/libcurl/c/CURLOPT_HTTPHEADER.html
  void SetHeaders(const std::string& headers);

  // GETs `url` and parses the response body as JSON, for every HTTP status. The
  // User-Agent is "QVcurlHttp/0.1.2". The time limit is 5 seconds. A host name is resolved to
  // IPv4 addresses only; libcurl 7.88 and 8.14 refuse an IPv6 address in the URL, 8.23 connects to
  // it.
  //
  // `unused` is never read: it keeps the parameters parallel to those of Post.
  // `useSsl` false verifies nothing about an https server. True requires the files of SetSslInfo:
  // the server's certificate must chain to the CA file or to the system's CA directory, its host
  // name is not compared, and the client certificate is offered. True also uses up the pass phrase.
  //
  // Returns the document, and sets `responseCode` to
  //   the HTTP status    when the body is JSON (RFC 8259);
  //   -1, null returned  when the transfer failed, libcurl has no handle, `useSsl` lacks one of its
  //                      three files, or the body is not JSON (an empty one is not).
  // An empty `url` returns null and leaves `responseCode` unchanged. Failures are logged.
  LumJson::Value Get(const std::string& url, const std::string& unused, bool useSsl,
                     int& responseCode);

  // POSTs `body` to `url`, byte for byte. The rest, result and `responseCode` included, is as in
  // Get.
  LumJson::Value Post(const std::string& url, const std::string& body, bool useSsl,
                      int& responseCode);

  // Stores the paths of three PEM files and the key's pass phrase for requests with `useSsl`.
  //
  // The paths are always stored. `keyPassword` is `keyPasswordLen` bytes (0 to 2048), copied
  // without a terminator: count the terminating zero in, or a shorter phrase keeps the tail of a
  // longer one. For a key without a pass phrase give any pointer but null and a length of 0. A null
  // `keyPassword` or a length above 2048 is logged and leaves the stored phrase unchanged; a
  // negative length leaves it unchanged without a log line.
  //
  // The pass phrase serves one request: the next Get or Post with `useSsl` wipes it, unless its URL
  // or one of the paths is empty, or memory runs out.
  void SetSslInfo(std::string caCertPath, std::string clientCertPath, std::string clientKeyPath,
                  unsigned char* keyPassword, int keyPasswordLen);

  // Downloads `url` into the file `path` and replaces the file's contents. Sends the two default
  // header lines, never that of SetHeaders, and the User-Agent of Get. The time limit is 60
  // seconds; opening a named pipe has none. Nothing about an https server is verified, and no
  // client certificate is offered.
  //
  // Returns 0 for every HTTP status: check what arrived. -10000 when the transfer failed (the part
  // that arrived stays in the file), libcurl has no handle, the file cannot be opened, or `path` is
  // empty, a directory, not in one, or too long; the last four keep a handle for the life of the
  // process (docs/operations.md). -9999 when the object has no private part, which no constructor
  // leaves.
  int DownloadFile(std::string url, std::string path);

 private:
  LumCurlHttpPrivate* d_pointer;  // owned
};

#endif  // LUM_CURL_HTTP_H
