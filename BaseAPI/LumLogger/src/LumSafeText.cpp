// The rule of what may be shown, as two tables: which bytes form a character, and which characters
// are unfit.

#include "LumSafeText.h"

#include <string_view>

namespace {

struct Range {
  unsigned int first;
  unsigned int last;
};

bool IsIn(const Range& range, unsigned int value) {
  return value >= range.first && value <= range.last;
}

// The well-formed sequences of more than one byte (The Unicode Standard, table 3-7). Neither
// overlong forms nor surrogates nor values beyond U+10FFFF are among them.
struct Form {
  std::size_t length;
  Range first;   // of the first byte
  Range second;  // of the second byte
};

constexpr Range kContinuation = {0x80, 0xBF};
constexpr Form kForms[] = {
    {2, {0xC2, 0xDF}, kContinuation}, {3, {0xE0, 0xE0}, {0xA0, 0xBF}},
    {3, {0xE1, 0xEC}, kContinuation}, {3, {0xED, 0xED}, {0x80, 0x9F}},
    {3, {0xEE, 0xEF}, kContinuation}, {4, {0xF0, 0xF0}, {0x90, 0xBF}},
    {4, {0xF1, 0xF3}, kContinuation}, {4, {0xF4, 0xF4}, {0x80, 0x8F}},
};

// Ascending.
constexpr Range kUnfit[] = {
    {0x00, 0x1F},      // C0 controls
    {0x7F, 0x9F},      // DEL, C1 controls
    {0x061C, 0x061C},  // Arabic letter mark
    {0x200E, 0x200F},  // left-to-right mark, right-to-left mark
    {0x2028, 0x202E},  // line and paragraph separators, embeddings and overrides
    {0x2066, 0x2069},  // isolates
};

// Length of the well-formed character at the start of `text`, or 0 where there is none.
std::size_t CharacterLength(const unsigned char* text, std::size_t size) {
  if (text[0] < kContinuation.first) {
    return 1;
  }
  for (const Form& form : kForms) {
    if (!IsIn(form.first, text[0])) {
      continue;
    }
    if (size < form.length || !IsIn(form.second, text[1])) {
      return 0;
    }
    for (std::size_t i = 2; i < form.length; ++i) {
      if (!IsIn(kContinuation, text[i])) {
        return 0;
      }
    }
    return form.length;
  }
  return 0;
}

unsigned int CodePoint(const unsigned char* text, std::size_t length) {
  unsigned int value = length == 1 ? text[0] : text[0] & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    value = value << 6 | (text[i] & 0x3FU);
  }
  return value;
}

bool IsFit(unsigned int codePoint) {
  for (const Range& range : kUnfit) {
    if (codePoint <= range.last) {
      return codePoint < range.first;
    }
  }
  return true;
}

}  // namespace

std::size_t LumSafeLength(const char* text, std::size_t size, const char* allowed) noexcept {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text);
  const std::string_view exceptions(allowed);
  std::size_t at = 0;
  while (at < size) {
    if (bytes[at] >= ' ' && bytes[at] <= '~') {  // nearly all text is; the tables say the same
      ++at;
      continue;
    }
    const std::size_t length = CharacterLength(bytes + at, size - at);
    const bool fit = length > 0 && (IsFit(CodePoint(bytes + at, length)) ||
                                    exceptions.find(text[at]) != std::string_view::npos);
    if (!fit) {
      break;
    }
    at += length;
  }
  return at;
}
