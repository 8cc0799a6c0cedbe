// Signatures of uploads to an object storage, and the dates that they cover.
#ifndef LUM_COMMON_SIGNATURE_H
#define LUM_COMMON_SIGNATURE_H

#include <cstddef>
#include <ctime>
#include <optional>
#include <string>

// A moment in the words of strftime(3), in UTC.
std::string UtcTime(std::time_t seconds, const char* format);

// A date like "Sun, 06 Nov 1994 08:49:37 GMT" (RFC 9110 section 5.6.7) for seconds since 1970, and
// the seconds of such a date.
std::string HttpDate(std::time_t seconds);
std::optional<std::time_t> ParseHttpDate(const std::string& text);

// A digest as header fields carry it.
std::string ToBase64(const unsigned char* data, std::size_t size);

constexpr char kSignatureScheme[] = "LUM ";

// The value of Authorization that goes with a request: the scheme and the base64 of the HMAC-SHA1
// under `key` of METHOD "\n" DATE "\n" PATH. DATE is the Date header as sent; PATH is the path of
// the request line as sent, percent-encoding included, without the query. Throws
// std::runtime_error.
std::string Signature(const std::string& key, const std::string& method, const std::string& date,
                      const std::string& path);

#endif  // LUM_COMMON_SIGNATURE_H
