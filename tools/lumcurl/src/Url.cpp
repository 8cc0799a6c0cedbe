// The proxy by libcurl's rules: https://curl.se/libcurl/c/CURLOPT_PROXY.html and
// CURLOPT_NOPROXY.html; the path by libcurl's own reading.

#include "Url.h"

#include <arpa/inet.h>
#include <curl/curl.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <vector>

#include "Failure.h"
#include "Text.h"

namespace {

// Of the variables, the first that is set and not empty.
std::optional<Proxy> FirstSet(const std::vector<const char*>& variables) {
  for (const char* variable : variables) {
    const std::string value = Environment(variable);
    if (!value.empty()) {
      return Proxy{variable, value};
    }
  }
  return std::nullopt;
}

// The host of a URL in small letters, an IPv6 address without brackets.
std::string HostOf(const std::string& url) {
  const std::size_t start = url.find("://") + 3;
  std::string host = url.substr(start, url.find_first_of("/?#", start) - start);
  host.erase(0, host.rfind('@') + 1);
  if (!host.empty() && host.front() == '[') {
    return LowerCase(host.substr(1, host.find(']') - 1));
  }
  return LowerCase(host.substr(0, host.find(':')));
}

// "10.0.0.0/8" holds `host`, an IPv4 address.
bool NetworkHolds(const std::string& network, const std::string& host) {
  const std::size_t slash = network.find('/');
  in_addr base = {};
  in_addr address = {};
  if (slash == std::string::npos ||
      inet_pton(AF_INET, network.substr(0, slash).c_str(), &base) != 1 ||
      inet_pton(AF_INET, host.c_str(), &address) != 1) {
    return false;
  }
  const long bits = std::clamp(std::strtol(network.c_str() + slash + 1, nullptr, 10), 0L, 32L);
  const std::uint32_t mask = bits == 0 ? 0 : ~std::uint32_t{0} << (32 - bits);
  return ((ntohl(base.s_addr) ^ ntohl(address.s_addr)) & mask) == 0;
}

// `pattern` is the host, a domain that it lies in, or a network.
bool Matches(std::string pattern, const std::string& host) {
  pattern.erase(0, pattern.find_first_not_of('.'));
  if (pattern == host || NetworkHolds(pattern, host)) {
    return true;
  }
  in_addr address = {};
  return inet_pton(AF_INET, host.c_str(), &address) != 1 && host.size() > pattern.size() &&
         host.compare(host.size() - pattern.size(), pattern.size(), pattern) == 0 &&
         host[host.size() - pattern.size() - 1] == '.';
}

bool IsReachedWithout(const std::string& host) {
  const std::optional<Proxy> exceptions = FirstSet({"no_proxy", "NO_PROXY"});
  if (!exceptions) {
    return false;
  }
  std::string list = LowerCase(exceptions->address);
  std::replace(list.begin(), list.end(), ',', ' ');
  std::istringstream patterns(list);
  for (std::string pattern; patterns >> pattern;) {
    if (pattern == "*" || Matches(pattern, host)) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::optional<Proxy> ProxyFor(const std::string& url) {
  // HTTP_PROXY is none: a web server sets it from what a client sends.
  const bool isTls = url.rfind("https://", 0) == 0;
  const auto proxy = isTls ? FirstSet({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
                           : FirstSet({"http_proxy", "all_proxy", "ALL_PROXY"});
  return proxy && !IsReachedWithout(HostOf(url)) ? proxy : std::nullopt;
}

std::string RequestPath(const std::string& url) {
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), &curl_url_cleanup);
  char* path = nullptr;
  if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK ||
      curl_url_get(parsed.get(), CURLUPART_PATH, &path, 0) != CURLUE_OK) {
    throw Failure(Exit::kUsage, "'" + url + "' is no URL");
  }
  const std::unique_ptr<char, decltype(&curl_free)> owned(path, &curl_free);
  return path;
}
