// What an upload says of itself, against what it should.
#include "SignatureCheck.h"

#include <openssl/crypto.h>

#include <cstdlib>

#include "Signature.h"

std::string CheckSignature(const std::string& key, const Call& call, std::time_t now) {
  const std::string* authorization = call.Header("Authorization");
  const std::string* date = call.Header("Date");
  if (authorization == nullptr || authorization->empty()) {
    return "no Authorization";
  }
  if (date == nullptr || date->empty()) {
    return "no Date";
  }
  const auto time = ParseHttpDate(*date);
  if (!time) {
    return "Date is no HTTP date";
  }
  if (std::llabs(static_cast<long long>(*time) - static_cast<long long>(now)) > kDateWindow) {
    return "Date is more than 15 minutes from now";
  }
  if (!authorization->starts_with(kSignatureScheme)) {
    return "Authorization does not begin with 'LUM '";
  }
  const std::string expected = Signature(key, call.method, *date, call.path);
  // The time of the comparison must not tell how many characters were right.
  if (authorization->size() != expected.size() ||
      CRYPTO_memcmp(authorization->data(), expected.data(), expected.size()) != 0) {
    return "the signature does not match";
  }
  return {};
}
