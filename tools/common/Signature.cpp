// HMAC-SHA1 over method, date and path.
#include "Signature.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <climits>
#include <stdexcept>

namespace {

// The names of days and months follow the locale, which neither tool sets.
constexpr char kDate[] = "%a, %d %b %Y %H:%M:%S GMT";

}  // namespace

std::string UtcTime(std::time_t seconds, const char* format) {
  std::tm parts = {};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 64> text = {};
  return {text.data(), std::strftime(text.data(), text.size(), format, &parts)};
}

std::string HttpDate(std::time_t seconds) {
  return UtcTime(seconds, kDate);
}

std::optional<std::time_t> ParseHttpDate(const std::string& text) {
  std::tm parts = {};
  const char* end = ::strptime(text.c_str(), kDate, &parts);
  if (end == nullptr || end != text.c_str() + text.size()) {
    return std::nullopt;
  }
  return ::timegm(&parts);
}

std::string ToBase64(const unsigned char* data, std::size_t size) {
  std::string text(4 * ((size + 2) / 3) + 1, '\0');  // OpenSSL adds a zero byte
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), data, static_cast<int>(size));
  text.pop_back();
  return text;
}

std::string Signature(const std::string& key, const std::string& method, const std::string& date,
                      const std::string& path) {
  const std::string text = method + "\n" + date + "\n" + path;
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest = {};
  unsigned size = 0;
  if (key.size() > INT_MAX || HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()),
                                   reinterpret_cast<const unsigned char*>(text.data()), text.size(),
                                   digest.data(), &size) == nullptr) {
    throw std::runtime_error("OpenSSL cannot compute an HMAC-SHA1");
  }
  return kSignatureScheme + ToBase64(digest.data(), size);
}
