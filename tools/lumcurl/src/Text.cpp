#include "Text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "LumSafeText.h"

namespace {

constexpr std::size_t kShownPath = 300;  // bytes
constexpr double kLongestTime = 1e9;     // seconds; beyond it nobody counts

// Length of `text` without a last UTF-8 character of which bytes are missing.
std::size_t WholeCharacters(const std::string& text) {
  for (std::size_t back = 1; back <= std::min<std::size_t>(3, text.size()); ++back) {
    const auto byte = static_cast<unsigned char>(text[text.size() - back]);
    if (byte >= 0xC0) {  // begins a character of two, three or four bytes
      const std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : 2;
      return back < length ? text.size() - back : text.size();
    }
  }
  return text.size();
}

}  // namespace

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::string LowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

std::string TerminalEscaper::Feed(const char* bytes, std::size_t size) {
  m_held.append(bytes, size);
  const std::size_t whole = WholeCharacters(m_held);
  std::string out = LumSafeText(m_held.substr(0, whole), kLayout);
  m_held.erase(0, whole);
  return out;
}

std::string TerminalEscaper::Flush() {
  return LumSafeText(std::exchange(m_held, {}), kLayout);
}

std::string Shortened(const std::string& text, std::size_t limit) {
  if (text.size() <= limit) {
    return text;
  }
  const std::string cut = text.substr(0, limit);
  return cut.substr(0, WholeCharacters(cut)) + "...";
}

std::string Excerpt(const std::string& text, std::size_t limit) {
  return LumSafeText(Shortened(text, limit));
}

std::string Quoted(const std::string& path) {
  return "'" + Shortened(path, kShownPath) + "'";
}

bool NamesSecret(const std::string& name) {
  static constexpr std::array<const char*, 9> kParts = {
      "auth", "token", "secret", "pass", "pwd", "cookie", "credential", "signature", "key"};
  const std::string lower = LowerCase(name);
  return lower == "sig" || std::any_of(kParts.begin(), kParts.end(), [&lower](const char* part) {
           return lower.find(part) != std::string::npos;
         });
}

std::vector<std::string> SecretsOfUrl(const std::string& url) {
  std::vector<std::string> secrets;
  const std::size_t scheme = url.find("://");
  const std::size_t start = scheme == std::string::npos ? 0 : scheme + 3;
  const std::size_t authorityEnd = std::min(url.find_first_of("/?#", start), url.size());
  const std::string authority = url.substr(start, authorityEnd - start);
  const std::size_t at = authority.rfind('@');
  const std::size_t colon = authority.find(':');
  if (at != std::string::npos && colon < at) {
    secrets.push_back(authority.substr(colon + 1, at - colon - 1));
  }
  std::size_t begin = url.find('?', authorityEnd);
  while (begin != std::string::npos && begin < url.size() && url[begin] != '#') {
    ++begin;
    const std::size_t end = std::min(url.find_first_of("&#", begin), url.size());
    const std::size_t equals = url.find('=', begin);
    if (equals < end && NamesSecret(url.substr(begin, equals - begin))) {
      secrets.push_back(url.substr(equals + 1, end - equals - 1));
    }
    begin = end;
  }
  return secrets;
}

std::string SecretOfHeader(const std::string& line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string::npos || !NamesSecret(line.substr(0, colon))) {
    return {};
  }
  return line.substr(std::min(line.find_first_not_of(' ', colon + 1), line.size()));
}

std::string MaskedHeader(const std::string& line) {
  return SecretOfHeader(line).empty() ? line : line.substr(0, line.find(':')) + ": ***";
}

std::string HumanBytes(double bytes) {
  static constexpr std::array<const char*, 5> kUnits = {"B", "KiB", "MiB", "GiB", "TiB"};
  std::size_t unit = 0;
  while (bytes >= 1024 && unit + 1 < kUnits.size()) {
    bytes /= 1024;
    ++unit;
  }
  std::array<char, 32> text{};
  const int length = std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s",
                                   bytes, kUnits[unit]);
  return std::string(text.data(), static_cast<std::size_t>(std::max(length, 0)));
}

std::string HumanTime(double seconds) {
  const auto whole = static_cast<std::uint64_t>(std::ceil(std::min(seconds, kLongestTime)));
  const auto text = [](std::uint64_t number, const char* unit) {
    return std::to_string(number) + unit;
  };
  if (whole < 60) {
    return text(whole, " s");
  }
  return whole < 3600 ? text(whole / 60, " min ") + text(whole % 60, " s")
                      : text(whole / 3600, " h ") + text(whole % 3600 / 60, " min");
}
