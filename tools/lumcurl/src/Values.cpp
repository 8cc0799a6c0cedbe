#include "Values.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <map>
#include <regex>

namespace {

// libcurl takes no longer one (in milliseconds, in 32 bits): it would set none.
constexpr std::uint64_t kLongestTimeLimit = INT_MAX / 1000;

bool HoldsAny(const std::string& text, const char* characters) {
  return text.find_first_of(characters) != std::string::npos;
}

bool HoldsBlankOrControl(const std::string& text) {
  return std::any_of(text.begin(), text.end(),
                     [](unsigned char c) { return c <= ' ' || c == 0x7F; });
}

// For what goes into a request as it stands.
std::string CheckReserved(const std::string& text, const char* reserved) {
  return HoldsBlankOrControl(text) || HoldsAny(text, reserved)
             ? "'" + text + "' holds a character that must be percent-encoded: it is sent as given"
             : std::string();
}

}  // namespace

std::string CheckUrl(const std::string& url) {
  if (url.empty()) {
    return "the URL is empty";
  }
  const std::string::size_type scheme =
      url.rfind("http://", 0) == 0 ? 7 : (url.rfind("https://", 0) == 0 ? 8 : 0);
  if (scheme == 0) {
    return "'" + url + "' must begin with http:// or https://";
  }
  if (url.size() == scheme || HoldsAny(url.substr(scheme, 1), "/?#")) {
    return "'" + url + "' names no host";
  }
  if (HoldsBlankOrControl(url)) {
    return "'" + url + "' holds a blank or a control character; percent-encode it";
  }
  return {};
}

std::string CheckUrlWithoutQuery(const std::string& url) {
  return HoldsAny(url, "?#") ? "'" + url + "' must have no query and no fragment" : CheckUrl(url);
}

std::string CheckQueryValue(const std::string& text) {
  return CheckReserved(text, "&#");
}

std::string CheckPathPart(const std::string& text) {
  return text.empty() ? "the value is empty" : CheckReserved(text, "/?#");
}

std::string CheckServer(const std::string& server) {
  if (server.find("://") != std::string::npos) {
    return "'" + server + "' must be a host without a scheme (https is always used)";
  }
  if (server.empty() || HoldsBlankOrControl(server) || HoldsAny(server, "/?#@")) {
    return "'" + server + "' is no HOST or HOST:PORT";
  }
  return {};
}

std::string CheckLine(const std::string& text) {
  const bool isOneLine = text.find_first_of(std::string("\r\n\0", 3)) == std::string::npos;
  return isOneLine ? "" : "the value holds a line break";
}

std::string CheckAddress(const std::string& text) {
  unsigned char address[sizeof(in6_addr)];
  if (inet_pton(AF_INET, text.c_str(), address) == 1 ||
      inet_pton(AF_INET6, text.c_str(), address) == 1) {
    return {};
  }
  return "'" + text + "' is no numeric IPv4 or IPv6 address";
}

std::string CheckMac(const std::string& text) {
  static const std::regex kMac("([0-9A-Fa-f]{2}[:-]){5}[0-9A-Fa-f]{2}");
  return std::regex_match(text, kMac)
             ? std::string()
             : "'" + text + "' is no MAC address such as 02:00:5e:10:00:01";
}

std::string CheckVariablePrefix(const std::string& text) {
  static const std::regex kBeginning("[A-Za-z_][A-Za-z0-9_]*");
  return std::regex_match(text, kBeginning) ? std::string()
                                            : "'" + text + "' cannot begin the name of a variable";
}

std::string CheckSeconds(const std::string& text) {
  static const std::regex kSeconds("[0-9]{1,10}");
  return std::regex_match(text, kSeconds) && std::stoull(text) <= kLongestTimeLimit
             ? std::string()
             : "'" + text + "' is no number of seconds from 0 to " +
                   std::to_string(kLongestTimeLimit);
}

std::string ToBytesPerSecond(std::string& text) {
  static const std::regex kRate("([0-9]{1,10})([kKmMgG]?)");
  static const std::map<std::string, unsigned int> kShifts = {
      {"", 0}, {"k", 10}, {"K", 10}, {"m", 20}, {"M", 20}, {"g", 30}, {"G", 30}};
  std::smatch parts;
  if (!std::regex_match(text, parts, kRate)) {
    return "'" + text + "' is no rate such as 80000, 500K or 2M";
  }
  const std::uint64_t rate = std::stoull(parts[1]) << kShifts.at(parts[2]);
  if (rate == 0 || rate > INT_MAX) {
    return "'" + text + "' is not between 1 and " + std::to_string(INT_MAX) + " bytes per second";
  }
  text = std::to_string(rate);
  return {};
}
