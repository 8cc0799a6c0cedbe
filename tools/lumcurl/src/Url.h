// What libcurl makes of a URL.

#ifndef LUM_LUMCURL_URL_H
#define LUM_LUMCURL_URL_H

#include <optional>
#include <string>

struct Proxy {
  std::string variable;  // that names it
  std::string address;   // as the variable has it
};

// The proxy, taken from the environment, through which `url` is requested; nothing: none.
std::optional<Proxy> ProxyFor(const std::string& url);

// The path of `url` as libcurl will send it: percent-encoding as given, "." and ".." resolved,
// without the query; "/" when the URL has none. Throws Failure kUsage for what is no URL.
std::string RequestPath(const std::string& url);

#endif  // LUM_LUMCURL_URL_H
