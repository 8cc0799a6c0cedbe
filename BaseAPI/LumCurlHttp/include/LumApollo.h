// LumApollo: reads one namespace of properties from an Apollo configuration centre.

#ifndef LUM_APOLLO_H
#define LUM_APOLLO_H

#include <string>

struct HttpResult;  // the answer; include "HttpResult.h" to read it
class LumApolloPrivate;

// What to ask for. The fields go into the URL as they stand; what means something in a URL means it
// here ("/", "?", "#", "%", ".." between slashes). libcurl percent-encodes bytes beyond ASCII in
// the path, and nothing behind a "?".
struct LumApolloEnv {
  std::string configServer;   // host name or IPv4 address, with ":port" where it is not 443
  std::string appId;          // the application's id
  std::string cluster;        // the cluster; empty becomes "default" when the record is used
  std::string namespaceName;  // the namespace to read
};

// Thread safety: GetPropertyString may run on any number of threads, on one object or several, as
// long as no two calls share a LumApolloEnv.
//
// libcurl goes through the proxies that the environment names: https_proxy, all_proxy, no_proxy.
// https://curl.se/libcurl/c/libcurl-env.html
//
// Exceptions: std::bad_alloc when memory runs out; nothing else.
class __attribute__((visibility("default"))) LumApollo {
 public:
  LumApollo();
  ~LumApollo();

  LumApollo(const LumApollo&) = delete;
  LumApollo& operator=(const LumApollo&) = delete;

  // GETs https://configServer/configs/appId/cluster/namespaceName with
  // "Content-Type: application/json" and "charsets: utf-8"; the whole transfer, connecting
  // included, may take 5 seconds, which a slow name look-up can exceed (docs/operations.md). The
  // server's certificate is not verified, redirects are not followed, nothing is retried. Each
  // request keeps its list of header lines for the life of the process; a call whose URL is too
  // long keeps its handle (docs/operations.md says how much that is).
  //
  // A host name is resolved to IPv4 addresses only; an IPv6 address, "[::1]", fails with libcurl
  // 7.88 and 8.14, and 8.23 connects to it.
  //
  // An empty `env.cluster` is set to "default" in the caller's record.
  //
  // Returns the HTTP status, whatever it is, with the body as it came; or `code` -1 with
  //   "POST failed for: <libcurl's error text> ."  when the transfer failed, which is logged;
  //   an empty body                                when the URL is longer than 4095 bytes, or
  //                                                libcurl gave no handle, which is logged.
  // The process initialises libcurl: this class never does.
  HttpResult GetPropertyString(LumApolloEnv& env);

 private:
  LumApolloPrivate* d_pointer;  // owned
};

#endif  // LUM_APOLLO_H
