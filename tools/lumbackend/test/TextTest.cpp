// Percent-encoding, UTF-8, printable text.
#include "Text.h"

#include <gtest/gtest.h>

namespace {

TEST(Text, DecodesPercentEncodingOnceAndLeavesTheRest) {
  EXPECT_EQ(DecodePercent("a%20b%2Fc%2f+"), "a b/c/+");
  EXPECT_EQ(DecodePercent("%2541"), "%41");
  EXPECT_EQ(DecodePercent("%00").value().size(), 1u);
  EXPECT_EQ(DecodePercent(""), "");
}

TEST(Text, RefusesAPercentSignWithoutTwoHexDigits) {
  for (const char* text : {"%", "a%", "%4", "%4g", "%g4", "%%41", "50%.log"}) {
    EXPECT_FALSE(DecodePercent(text).has_value()) << text;
  }
}

TEST(Text, EncodesEverythingThatAnUrlSegmentCannotHold) {
  EXPECT_EQ(EncodePercent("aZ09-._~"), "aZ09-._~");
  EXPECT_EQ(EncodePercent("a b&c/d?e%\xC3\xA9"), "a%20b%26c%2Fd%3Fe%25%C3%A9");
}

TEST(Text, PercentEncodingSurvivesARoundTripForEveryByte) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) {
    all += static_cast<char>(byte);
  }
  EXPECT_EQ(DecodePercent(EncodePercent(all)), all);
}

TEST(Text, KnowsWellFormedUtf8) {
  for (const char* text : {"", "plain", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF",
                           "\xEE\x80\x80", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_TRUE(IsUtf8(text)) << Printable(text);
  }
}

TEST(Text, RefusesEveryIllFormedSequence) {
  for (const char* text : {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2z", "\xE0\x9F\xBF",
                           "\xE1\x80", "\xED\xA0\x80", "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF",
                           "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "ok\xFE"}) {
    EXPECT_FALSE(IsUtf8(text)) << Printable(text);
  }
}

TEST(Text, PrintableKeepsTextAndEscapesControlCharacters) {
  EXPECT_EQ(Printable("caf\xC3\xA9 \xF0\x9F\x98\x80"), "caf\xC3\xA9 \xF0\x9F\x98\x80");
  EXPECT_EQ(Printable("\x1B[31m\r\n\x7F"), "\\x1b[31m\\x0d\\x0a\\x7f");
  EXPECT_EQ(Printable(std::string("a\0b", 3)), "a\\x00b");
  EXPECT_EQ(Printable("\xC2\x9B"
                      "2J"),
            "\\xc2\\x9b2J");  // CSI in one character
  EXPECT_EQ(Printable("\xC2\xA0"), "\xC2\xA0");
  EXPECT_EQ(Printable("\xFFz\xC3"), "\\xffz\\xc3");
  EXPECT_EQ(Printable("\xE2\x80\xAE\xE2\x81\xA6\xE2\x80\xA9"),
            "\\xe2\\x80\\xae\\xe2\\x81\\xa6\xE2\x80\xA9");
}

TEST(Text, NamesOfHeadersAreEqualInAnyCase) {
  EXPECT_TRUE(SameName("X-Auth-Token", "x-AUTH-token"));
  EXPECT_FALSE(SameName("X-Auth-Token", "X-Auth-Toke"));
  EXPECT_FALSE(SameName("[", "{"));
}

TEST(Text, WritesBytesAsHex) {
  const unsigned char bytes[] = {0x00, 0xAF, 0xFF};
  EXPECT_EQ(ToHex(bytes, sizeof bytes), "00afff");
}

}  // namespace
