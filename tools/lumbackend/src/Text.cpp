// Percent-encoding, UTF-8 and making text fit to be shown.
#include "Text.h"

#include <LumSafeText.h>

#include <openssl/asn1.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <boost/beast/core/string.hpp>
#include <cctype>
#include <stdexcept>

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";
constexpr char kUpperHexDigits[] = "0123456789ABCDEF";
constexpr std::size_t kLongestCharacter = 4;  // bytes of UTF-8
constexpr unsigned long kLastCharacter = 0x10FFFF;

}  // namespace

std::string ToHex(const unsigned char* data, std::size_t size) {
  std::string text;
  text.reserve(2 * size);
  for (std::size_t i = 0; i < size; ++i) {
    text += {kHexDigits[data[i] >> 4], kHexDigits[data[i] & 15]};
  }
  return text;
}

std::string RandomHex(std::size_t size) {
  std::string bytes(size, '\0');
  auto* data = reinterpret_cast<unsigned char*>(bytes.data());
  if (RAND_bytes(data, static_cast<int>(size)) != 1) {
    throw std::runtime_error("OpenSSL has no random bytes");
  }
  return ToHex(data, size);
}

std::optional<std::string> DecodePercent(const std::string& text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    const bool both = i + 2 < text.size();
    const int high = both ? OPENSSL_hexchar2int(static_cast<unsigned char>(text[i + 1])) : -1;
    const int low = both ? OPENSSL_hexchar2int(static_cast<unsigned char>(text[i + 2])) : -1;
    if (high < 0 || low < 0) {
      return std::nullopt;
    }
    decoded += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return decoded;
}

std::string EncodePercent(const std::string& text) {
  std::string encoded;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (std::isalnum(byte) != 0 || std::string("-._~").find(character) != std::string::npos) {
      encoded += character;
    } else {
      encoded += {'%', kUpperHexDigits[byte >> 4], kUpperHexDigits[byte & 15]};
    }
  }
  return encoded;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    unsigned long code = 0;
    const int length = UTF8_getc(reinterpret_cast<const unsigned char*>(text.data()),
                                 static_cast<int>(std::min(text.size(), kLongestCharacter)), &code);
    if (length <= 0 || code > kLastCharacter) {
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(length));
  }
  return true;
}

std::string Printable(const std::string& text) {
  return LumSafeText(text);
}

bool SameName(const std::string& a, const std::string& b) {
  return boost::beast::iequals(a, b);
}
