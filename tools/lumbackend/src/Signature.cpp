// HMAC-SHA1 over method, date and path.
#include "Signature.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <cstdlib>
#include <limits>
#include <stdexcept>

#include "Text.h"

namespace {

const char kScheme[] = "LUM ";

}  // namespace

std::string SignatureFor(const std::string& key, const std::string& method, const std::string& date,
                         const std::string& path) {
  const std::string text = method + "\n" + date + "\n" + path;
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest = {};
  unsigned size = 0;
  if (key.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()) ||
      HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()),
           reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data(),
           &size) == nullptr) {
    throw std::runtime_error("cannot compute an HMAC-SHA1");
  }
  return kScheme + ToBase64(digest.data(), size);
}

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
  if (!authorization->starts_with(kScheme)) {
    return "Authorization does not begin with 'LUM '";
  }
  const std::string expected = SignatureFor(key, call.method, *date, call.path);
  // The time of the comparison must not tell how many characters were right.
  if (authorization->size() != expected.size() ||
      CRYPTO_memcmp(authorization->data(), expected.data(), expected.size()) != 0) {
    return "the signature does not match";
  }
  return {};
}

std::optional<std::time_t> ParseHttpDate(const std::string& text) {
  std::tm parts = {};
  const char* end = ::strptime(text.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
  if (end == nullptr || *end != '\0' || end != text.c_str() + text.size()) {
    return std::nullopt;
  }
  return ::timegm(&parts);
}
