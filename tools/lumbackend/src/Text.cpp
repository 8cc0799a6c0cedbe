// Percent-encoding, UTF-8 and random text.
#include "Text.h"

#include <openssl/asn1.h>
#include <openssl/rand.h>

#include <algorithm>
#include <boost/algorithm/hex.hpp>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/split.hpp>
#include <cctype>
#include <stdexcept>

namespace {

constexpr std::size_t kLongestCharacter = 4;  // bytes of UTF-8
constexpr unsigned long kLastCharacter = 0x10FFFF;

}  // namespace

std::string RandomHex(std::size_t size) {
  std::string bytes(size, '\0');
  if (RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(size)) != 1) {
    throw std::runtime_error("OpenSSL has no random bytes");
  }
  return boost::algorithm::hex_lower(bytes);
}

std::optional<std::string> DecodePercent(const std::string& text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    decoded += text[i];
    if (text[i] == '%') {
      const std::string digits = text.substr(i + 1, 2);
      if (digits.size() < 2 || !boost::algorithm::all(digits, boost::algorithm::is_xdigit())) {
        return std::nullopt;
      }
      decoded.back() = boost::algorithm::unhex(digits)[0];
      i += 2;
    }
  }
  return decoded;
}

std::string EncodePercent(const std::string& text) {
  std::string encoded;
  for (const char character : text) {
    const bool plain = std::isalnum(static_cast<unsigned char>(character)) != 0 ||
                       std::string("-._~").find(character) != std::string::npos;
    const std::string byte(1, character);
    encoded += plain ? byte : "%" + boost::algorithm::hex(byte);
  }
  return encoded;
}

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  boost::algorithm::split(parts, text, [=](char character) { return character == separator; });
  return parts;
}

std::string StartOf(const std::string& text, std::size_t size) {
  std::size_t end = std::min(size, text.size());
  const std::size_t least = end - std::min(end, kLongestCharacter - 1);
  while (end < text.size() && end > least &&
         (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
    --end;
  }
  return text.substr(0, end);
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
