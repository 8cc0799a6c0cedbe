// Signatures of uploads to the object storage.
#ifndef LUM_BACKEND_SIGNATURE_CHECK_H
#define LUM_BACKEND_SIGNATURE_CHECK_H

#include <ctime>
#include <string>

#include "Message.h"

// How far a Date header may be from now, in seconds, before and after.
constexpr std::time_t kDateWindow = 900;

// "" when Date and Authorization of `call` are right at the time `now`, else what is wrong, in
// words that do not hold the expected value.
std::string CheckSignature(const std::string& key, const Call& call, std::time_t now);

#endif  // LUM_BACKEND_SIGNATURE_CHECK_H
