// Percent-encoding, UTF-8, printable text.
#include "Text.h"

#include <LumSafeText.h>
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

TEST(Text, IsCutBetweenTwoCharacters) {
  EXPECT_EQ(StartOf("abc", 3), "abc");
  EXPECT_EQ(StartOf("abc", 2), "ab");
  EXPECT_EQ(StartOf("a\xC3\xA9z", 2), "a");
  EXPECT_EQ(StartOf("a\xF0\x9F\x98\x80", 4), "a");
  EXPECT_EQ(StartOf("a\xF0\x9F\x98\x80", 5), "a\xF0\x9F\x98\x80");
  EXPECT_EQ(StartOf(std::string(9, '\x80'), 5), "\x80\x80");  // no text
}

TEST(Text, KnowsWellFormedUtf8) {
  for (const char* text : {"", "plain", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF",
                           "\xEE\x80\x80", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_TRUE(IsUtf8(text)) << LumSafeText(text);
  }
}

TEST(Text, RefusesEveryIllFormedSequence) {
  for (const char* text : {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2z", "\xE0\x9F\xBF",
                           "\xE1\x80", "\xED\xA0\x80", "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF",
                           "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "ok\xFE"}) {
    EXPECT_FALSE(IsUtf8(text)) << LumSafeText(text);
  }
}

}  // namespace
