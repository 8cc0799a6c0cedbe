// LumCurlHttp: a general HTTP(S) client. JSON over GET and POST, with client-certificate TLS and a
// header of the caller's where wanted, and the download of a URL into a file.

#ifndef LUM_CURL_HTTP_H
#define LUM_CURL_HTTP_H

#include <string>

#include "LumJson.h"

class LumCurlHttpPrivate;

// Every request is one blocking transfer on the caller's thread, over a connection of its own: no
// connection is reused, nothing is retried, redirects are not followed. libcurl goes through the
// proxies that the environment names: http_proxy, https_proxy, all_proxy, no_proxy.
// https://curl.se/libcurl/c/libcurl-env.html
//
// Each operation says how long its whole transfer may take, connecting included. A name look-up
// that is slow can exceed that (docs/operations.md).
//
// Thread safety: Get and Post may be called from any number of threads; one object runs one of them
// at a time, further callers wait. DownloadFile waits for nobody. No setter may run while another
// thread uses the same object. Distinct objects are independent.
//
// Exceptions: std::bad_alloc when memory runs out and std::system_error when a mutex cannot be
// locked; nothing else.
class __attribute__((visibility("default"))) LumCurlHttp {
 public:
  // Initialises libcurl for the process: curl_global_init(CURL_GLOBAL_ALL), on every call. To be
  // called once at start-up, before other threads exist.
  // Returns libcurl's result, 0 (CURLE_OK) on success.
  // https://curl.se/libcurl/c/curl_global_init.html
  static int CurlGlobalInit();

  LumCurlHttp();
  ~LumCurlHttp();

  LumCurlHttp(const LumCurlHttp&) = delete;
  LumCurlHttp& operator=(const LumCurlHttp&) = delete;

  // Makes `headers` the one header line of every later Get and Post, in place of
  // "Content-Type: application/json" and "charsets: utf-8". The text is sent as it stands, as one
  // line ("Name: value", RFC 9110 section 5); it is not split, and must hold no line break. It
  // stays until it is replaced; an empty text is refused with a log line and changes nothing.
  //
  // "Name: " is sent with an empty value, as "Name:", and so is "Name;"; "Name:" without the blank
  // removes a header that libcurl would add. Another text without a colon, or one that begins with
  // a colon, is not sent, and neither are the default lines. A POST whose line is no Content-Type
  // goes out with libcurl's own, "application/x-www-form-urlencoded".
  // https://curl.se/libcurl/c/CURLOPT_HTTPHEADER.html
  void SetHeaders(const std::string& headers);

  // GETs `url` and parses the reply as JSON, whatever its HTTP status. The User-Agent is
  // "QVcurlHttp/0.1.2"; the whole transfer may take 5 seconds. A host name is resolved to IPv4
  // addresses only; an IPv6 address in the URL fails with libcurl 7.88 and 8.14, and 8.23 connects
  // to it.
  //
  // The second text is never read: it keeps the parameters parallel to those of Post.
  // `useSsl`: false verifies nothing about an https server. True needs the files of SetSslInfo: the
  // server's certificate must chain to the CA file or to the system's CA directory, though its host
  // name is not compared, and the client certificate is offered. A true `useSsl` also uses up the
  // pass phrase of SetSslInfo.
  //
  // Returns the reply's document, and sets `responseCode` to
  //   the HTTP status    when the body is JSON (RFC 8259);
  //   -1, null returned  when the transfer failed, when libcurl gave no handle for it, when
  //                      `useSsl` lacks one of its three files, and when the body is not JSON (an
  //                      empty body is not).
  // An empty `url` returns null and leaves `responseCode` as it was. Failures are logged.
  LumJson::Value Get(const std::string& url, const std::string& unused, bool useSsl,
                     int& responseCode);

  // POSTs `body`, which should be a JSON text and is sent byte for byte, to `url`. Everything else,
  // the result and `responseCode` included, is as in Get.
  LumJson::Value Post(const std::string& url, const std::string& body, bool useSsl,
                      int& responseCode);

  // Stores the PEM files and the key's pass phrase for requests with `useSsl`.
  //
  // The three paths are stored always and stay until they are replaced. `keyPassword` is
  // `keyPasswordLen` bytes (0 to 2048), copied here; no terminator is added, and a phrase shorter
  // than one still stored keeps the other's tail unless its own terminating zero is counted in.
  // The pass phrase serves one request: the next Get or Post with `useSsl` wipes it, unless its URL
  // or one of the three paths is empty, or memory runs out. So an encrypted key needs SetSslInfo
  // again before each request. A key without one takes any pointer but null and a length of 0. A
  // null `keyPassword` or a length above 2048 is logged and leaves the stored pass phrase as it
  // was; a negative length leaves it too, without a log line.
  void SetSslInfo(std::string caCertPath, std::string clientCertPath, std::string clientKeyPath,
                  unsigned char* keyPassword, int keyPasswordLen);

  // Downloads `url` into the file `path`, replacing what the file held. Sends the two default
  // header lines, whatever SetHeaders was given, and the User-Agent of Get. The whole transfer may
  // take 60 seconds, but a named pipe is waited for without a limit. Nothing about an https server
  // is verified, and no client certificate is offered. A path that is refused keeps its request's
  // handle for the life of the process (docs/operations.md says how much that is).
  //
  // The HTTP status is not looked at: an error page is a download like any other, and returns 0.
  // Returns 0; -10000 when the transfer failed (what had arrived stays in the file), when libcurl
  // gave no handle for it, when the file could not be opened, or when `path` is a directory, lies
  // in none, or is longer than the system allows. (-9999 stands for an object without its private
  // part, which no constructor leaves.)
  int DownloadFile(std::string url, std::string path);

 private:
  LumCurlHttpPrivate* d_pointer;  // owned
};

#endif  // LUM_CURL_HTTP_H
