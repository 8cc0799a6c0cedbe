// The proxy that libcurl takes from the environment.

#ifndef LUM_LUMCURL_PROXY_H
#define LUM_LUMCURL_PROXY_H

#include <optional>
#include <string>

struct Proxy {
  std::string variable;  // that names it
  std::string address;   // as the variable has it
};

// The proxy through which `url` is requested; nothing: none.
std::optional<Proxy> ProxyFor(const std::string& url);

#endif  // LUM_LUMCURL_PROXY_H
