// LumApollo: reads one namespace of properties from an Apollo configuration centre.

#ifndef LUM_APOLLO_H
#define LUM_APOLLO_H

#include <string>

struct HttpResult;  // the answer; include "HttpResult.h" to read it
class LumApolloPrivate;

// The query. Its fields become parts of a URL as they are: "/", "?", "#", "%" and ".." keep their
// meaning. libcurl percent-encodes bytes beyond ASCII in the path, not in the query.
struct LumApolloEnv {
  std::string configServer;   // host name or IPv4 address; ":port" unless it is 443
  std::string appId;          // the application's id
  std::string cluster;        // the cluster; a call replaces an empty one by "default"
  std::string namespaceName;  // the namespace to read
};

// Thread safety: calls may run in parallel, on one object or several, each with its own
// LumApolloEnv.
//
// libcurl uses the proxies that http_proxy, https_proxy, all_proxy and no_proxy name in the
// environment. A slow name look-up can exceed the time limit (docs/operations.md for both).
//
// Exceptions: std::bad_alloc when memory runs out; nothing else.
class __attribute__((visibility("default"))) LumApollo {
 public:
  LumApollo();
  ~LumApollo();

  LumApollo(const LumApollo&) = delete;
  LumApollo& operator=(const LumApollo&) = delete;

  // GETs https://configServer/configs/appId/cluster/namespaceName with
  // "Content-Type: application/json" and "charsets: utf-8". The time limit is 5 seconds. The
  // server's certificate is not verified, redirects are not followed, nothing is retried. A host
  // name is resolved to IPv4 addresses only; libcurl 7.88 and 8.14 refuse an IPv6 address, 8.23
  // connects to it.
  //
  // Sets an empty `env.cluster` to "default".
  //
  // Returns any HTTP status with the response body, unparsed; or `code` -1 with
  //   "POST failed for: <libcurl's error text> ."  when the transfer failed, which is logged;
  //   an empty body                                when the URL is longer than 4095 bytes, or
  //                                                libcurl has no handle, which is logged.
  //
  // Initialise libcurl first: this class never does. Each call keeps a little memory for the life
  // of the process (docs/operations.md).
  HttpResult GetPropertyString(LumApolloEnv& env);

 private:
  LumApolloPrivate* d_pointer;  // owned
};

#endif  // LUM_APOLLO_H
