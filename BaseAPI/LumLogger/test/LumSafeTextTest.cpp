// The rule of what may be shown, as tables.

#include "LumSafeText.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

std::string Escaped(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    char escape[5];
    std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(byte));
    text += escape;
  }
  return text;
}

std::string Utf8(unsigned int codePoint) {
  const auto next = [codePoint](unsigned int shift) {
    return static_cast<char>(0x80 | (codePoint >> shift & 0x3F));
  };
  if (codePoint < 0x80) {
    return {static_cast<char>(codePoint)};
  }
  if (codePoint < 0x800) {
    return {static_cast<char>(0xC0 | codePoint >> 6), next(0)};
  }
  if (codePoint < 0x10000) {
    return {static_cast<char>(0xE0 | codePoint >> 12), next(6), next(0)};
  }
  return {static_cast<char>(0xF0 | codePoint >> 18), next(12), next(6), next(0)};
}

bool IsSurrogate(unsigned int codePoint) {
  return codePoint >= 0xD800 && codePoint <= 0xDFFF;
}

bool IsUnfit(unsigned int codePoint) {
  return codePoint < 0x20 || (codePoint >= 0x7F && codePoint <= 0x9F) || codePoint == 0x061C ||
         codePoint == 0x200E || codePoint == 0x200F || codePoint == 0x2028 || codePoint == 0x2029 ||
         (codePoint >= 0x202A && codePoint <= 0x202E) ||
         (codePoint >= 0x2066 && codePoint <= 0x2069) || IsSurrogate(codePoint);
}

TEST(LumSafeText, EveryCharacterStandsAsItIsOrAsItsBytesEscaped) {
  for (unsigned int page = 0; page <= 0x10FF; ++page) {
    std::string text;
    std::string shown;
    for (unsigned int codePoint = page << 8; codePoint <= (page << 8 | 0xFF); ++codePoint) {
      const std::string character = Utf8(codePoint);
      text += character + 'z';
      shown += (IsUnfit(codePoint) ? Escaped(character) : character) + 'z';
    }
    ASSERT_EQ(LumSafeText(text), shown);
  }
}

TEST(LumSafeText, BytesThatAreNoUtf8AreEscaped) {
  struct {
    std::string bytes;
    std::string shown;
  } const kTable[] = {
      // Begins no character.
      {"\x80", "\\x80"},
      {"\xBF", "\\xbf"},
      // Cut short.
      {"\xC2", "\\xc2"},
      {"\xC3z", "\\xc3z"},
      {"\xC3\x7F", "\\xc3\\x7f"},
      {"\xE2\x82", "\\xe2\\x82"},
      {"\xE2\x82z", "\\xe2\\x82z"},
      {"\xE2\x82\x7F", "\\xe2\\x82\\x7f"},
      {"\xE2z\x82", "\\xe2z\\x82"},
      {"\xED\x7F\xBF", "\\xed\\x7f\\xbf"},
      {"\xF0\x9F\x98", "\\xf0\\x9f\\x98"},
      {"\xF0\x9F\x98z", "\\xf0\\x9f\\x98z"},
      {"\xF4\x7F\xBF\xBF", "\\xf4\\x7f\\xbf\\xbf"},
      // One begins within another.
      {"\xC2\xC3\xA4", "\\xc2\xC3\xA4"},
      {"\xF0\x9F\xC3\xA4", "\\xf0\\x9f\xC3\xA4"},
      {"\xC3\xC0", "\\xc3\\xc0"},
      {"\xE0\xC0\xBF", "\\xe0\\xc0\\xbf"},
      {"\xF0\xC0\xBF\xBF", "\\xf0\\xc0\\xbf\\xbf"},
      // Overlong; the first ones would be line feeds, the next one an A.
      {"\xC0\x8A", "\\xc0\\x8a"},
      {"\xE0\x80\x8A", "\\xe0\\x80\\x8a"},
      {"\xF0\x80\x80\x8A", "\\xf0\\x80\\x80\\x8a"},
      {"\xC1\x81", "\\xc1\\x81"},
      {"\xE0\x9F\xBF", "\\xe0\\x9f\\xbf"},
      {"\xF0\x8F\xBF\xBF", "\\xf0\\x8f\\xbf\\xbf"},
      // Surrogates, and beyond U+10FFFF.
      {"\xED\xA0\x80\xED\xBF\xBF", "\\xed\\xa0\\x80\\xed\\xbf\\xbf"},
      {"\xF4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
      {"\xF5\x80\x80\x80", "\\xf5\\x80\\x80\\x80"},
      {"\xF8\x88\x80\x80\x80", "\\xf8\\x88\\x80\\x80\\x80"},
      {"\xFE\xFF", "\\xfe\\xff"},
  };
  for (const auto& row : kTable) {
    EXPECT_EQ(LumSafeText(row.bytes), row.shown);
    EXPECT_EQ(LumSafeText("a" + row.bytes + "\xE2\x82\xAC"), "a" + row.shown + "\xE2\x82\xAC");
  }
}

TEST(LumSafeText, AllowedControlsPass) {
  const std::string controls("\0\t\n\r\x1B\x7F", 6);
  EXPECT_EQ(LumSafeText(controls), "\\x00\\x09\\x0a\\x0d\\x1b\\x7f");
  EXPECT_EQ(LumSafeText(controls, "\t"), "\\x00\t\\x0a\\x0d\\x1b\\x7f");
  EXPECT_EQ(LumSafeText(controls, "\n\t"), "\\x00\t\n\\x0d\\x1b\\x7f");
}

TEST(LumSafeText, AppendsNothingBeyondTheSize) {
  std::string shown = "a";
  LumAppendSafeText("\nbcd", 2, "", shown);
  EXPECT_EQ(shown, "a\\x0ab");
}

TEST(LumSafeText, CountsUpToTheFirstUnfitByte) {
  EXPECT_EQ(LumSafeLength("", 0, ""), 0U);
  EXPECT_EQ(LumSafeLength("abc", 1, ""), 1U);
  EXPECT_EQ(LumSafeLength("abc", 2, ""), 2U);
  EXPECT_EQ(LumSafeLength("a\xE2\x82\xAC\n", 5, ""), 4U);
  EXPECT_EQ(LumSafeLength("a\xE2\x82\xAC", 3, ""), 1U);  // the size ends within the character
}

}  // namespace
