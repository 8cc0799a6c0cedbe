// What differs between the releases of libcurl that the tests run on, Debian 12's 7.88 and those of
// series 8: its words for a failure, and some of what it does.

#ifndef LUM_TEST_WIRE_CURLTEXT_H
#define LUM_TEST_WIRE_CURLTEXT_H

#include <curl/curl.h>

#include <cstddef>
#include <string>

namespace lumtest {

// Debian 12's, up to sid's, sid's: what is between 8.14 and 8.23 has not been tried.
inline bool IsCurl7() {
  return curl_version_info(CURLVERSION_NOW)->version_num < 0x080000;
}

inline bool IsCurl823() {
  return curl_version_info(CURLVERSION_NOW)->version_num >= 0x081700;
}

template <class Value>
Value ByCurl(const Value& of7, const Value& of814, const Value& of823) {
  return IsCurl7() ? of7 : IsCurl823() ? of823 : of814;
}

template <class Value>
Value ByCurl(const Value& of7, const Value& of8) {
  return ByCurl(of7, of8, of8);
}

inline std::string ByCurl(const char* of7, const char* of814, const char* of823) {
  return IsCurl7() ? of7 : IsCurl823() ? of823 : of814;
}

inline std::string ByCurl(const char* of7, const char* of8) {
  return ByCurl(of7, of8, of8);
}

// libcurl's text for a result.
inline std::string CurlError(int result) {
  return curl_easy_strerror(static_cast<CURLcode>(result));
}

// The same as a regular expression that matches nothing else.
inline std::string CurlErrorPattern(int result) {
  std::string pattern;
  for (const char c : CurlError(result)) {
    if (std::string("\\.[]()*+?{}|^$").find(c) != std::string::npos) {
      pattern += '\\';
    }
    pattern += c;
  }
  return pattern;
}

// The longer text of a connection that is refused, as a regular expression; 8.23 joins host and
// port.
inline std::string CurlRefused(const std::string& host) {
  return "Failed to connect to " + host +
         "( port |:)[0-9]+ after [0-9]+ ms: " + CurlErrorPattern(7);
}

// The longer text of an answer that ends before its announced length, as a regular expression;
// series 8 has another once some of the body is there.
inline std::string CurlBytesMissing(std::size_t bytes) {
  const std::string count = std::to_string(bytes);
  const std::string closed = "transfer closed with " + count + " bytes remaining to read";
  return IsCurl7() ? closed : "(" + closed + "|end of response with " + count + " bytes missing)";
}

// The longer text of a certificate that is refused, as a regular expression.
inline std::string CurlBadCertificate(const std::string& why) {
  return IsCurl823() ? "SSL certificate OpenSSL verify result: " + why + " \\([0-9]+\\)"
                     : "SSL certificate problem: " + why;
}

// The result of a private key that cannot be used: a bad argument in 8.23.
inline int CurlBadKey() {
  return IsCurl823() ? 43 : 58;
}

// An upload of a known size asks whether to go on: always in 7.88, above one megabyte in series 8.
inline bool CurlAsksBefore(std::size_t bytes) {
  return IsCurl7() || bytes > 1024 * 1024;
}

// A line of the request's head whose value has 307200 bytes or more: 8.14 leaves it out and sends
// the rest; 7.88 and 8.23 send nothing when the head exceeds a megabyte.
inline bool CurlLeavesLongLinesOut() {
  return !IsCurl7() && !IsCurl823();
}

}  // namespace lumtest

#endif  // LUM_TEST_WIRE_CURLTEXT_H
