// Signatures of uploads to the object storage.
#ifndef LUM_BACKEND_SIGNATURE_H
#define LUM_BACKEND_SIGNATURE_H

#include <ctime>
#include <optional>
#include <string>

#include "Message.h"

// How far a Date header may be from now, in seconds, before and after.
constexpr std::time_t kDateWindow = 900;

// The value of Authorization that goes with a request: "LUM " and the base64 of the HMAC-SHA1 under
// `key` of METHOD "\n" DATE "\n" PATH. DATE is the Date header as sent; PATH is the path of the
// request line as sent, percent-encoding included, without the query.
std::string SignatureFor(const std::string& key, const std::string& method, const std::string& date,
                         const std::string& path);

// "" when Date and Authorization of `call` are right at the time `now`, else what is wrong, in
// words that do not hold the expected value.
std::string CheckSignature(const std::string& key, const Call& call, std::time_t now);

// Seconds since 1970 for a date like "Sun, 06 Nov 1994 08:49:37 GMT" (RFC 9110, section 5.6.7).
std::optional<std::time_t> ParseHttpDate(const std::string& text);

#endif  // LUM_BACKEND_SIGNATURE_H
