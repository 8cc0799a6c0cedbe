// Percent-encoding, UTF-8 and making text fit to be shown.
#include "Text.h"

#include <LumSafeText.h>

#include <algorithm>
#include <cctype>

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";
constexpr char kUpperHexDigits[] = "0123456789ABCDEF";

int HexValue(char digit) {
  if (digit >= '0' && digit <= '9') {
    return digit - '0';
  }
  const char lower = static_cast<char>(digit | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Length of the UTF-8 sequence at `at`, or 0 where there is none.
std::size_t SequenceLength(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
  };
  const auto follows = [&](std::size_t i) { return (byte(i) & 0xC0u) == 0x80u; };
  const unsigned first = byte(at);
  const unsigned second = byte(at + 1);
  if (first < 0x80) {
    return 1;
  }
  if (first >= 0xC2 && first <= 0xDF) {
    return follows(at + 1) ? 2 : 0;
  }
  if (first >= 0xE0 && first <= 0xEF) {
    const bool shortest = first != 0xE0 || second >= 0xA0;
    const bool scalar = first != 0xED || second < 0xA0;
    return follows(at + 1) && follows(at + 2) && shortest && scalar ? 3 : 0;
  }
  if (first >= 0xF0 && first <= 0xF4) {
    const bool shortest = first != 0xF0 || second >= 0x90;
    const bool inRange = first != 0xF4 || second < 0x90;
    return follows(at + 1) && follows(at + 2) && follows(at + 3) && shortest && inRange ? 4 : 0;
  }
  return 0;
}

}  // namespace

std::string ToHex(const unsigned char* data, std::size_t size) {
  std::string text;
  text.reserve(2 * size);
  for (std::size_t i = 0; i < size; ++i) {
    text += {kHexDigits[data[i] >> 4], kHexDigits[data[i] & 15]};
  }
  return text;
}

std::optional<std::string> DecodePercent(const std::string& text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    const int high = i + 2 < text.size() ? HexValue(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? HexValue(text[i + 2]) : -1;
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

bool IsUtf8(const std::string& text) {
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = SequenceLength(text, i);
    if (length == 0) {
      return false;
    }
    i += length;
  }
  return true;
}

std::string Printable(const std::string& text) {
  return LumSafeText(text);
}

bool SameName(const std::string& a, const std::string& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}
