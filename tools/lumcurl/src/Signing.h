// The signature of an upload: HMAC-SHA1 over method, date and path.

#ifndef LUM_LUMCURL_SIGNING_H
#define LUM_LUMCURL_SIGNING_H

#include <ctime>
#include <string>

// A date like "Sun, 06 Nov 1994 08:49:37 GMT" (RFC 9110 section 5.6.7).
std::string HttpDate(std::time_t seconds);

// The path of `url` as libcurl will send it: percent-encoding as given, "." and ".." resolved,
// without the query; "/" when the URL has none. Throws Failure kUsage for what is no URL.
std::string RequestPath(const std::string& url);

// "LUM " and the base64 of the HMAC-SHA1 under `key` of METHOD "\n" DATE "\n" PATH.
std::string Signature(const std::string& key, const std::string& method, const std::string& date,
                      const std::string& path);

#endif  // LUM_LUMCURL_SIGNING_H
