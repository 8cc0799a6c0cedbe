// The format of java.util.Properties.
#include "Properties.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

std::vector<std::pair<std::string, std::string>> Read(const std::string& text) {
  LumJson::Value properties = LumJson::Value::Object();
  EXPECT_EQ(ReadProperties(text, properties), "");
  std::vector<std::pair<std::string, std::string>> pairs;
  for (const LumJson::Member& member : properties.Members()) {
    pairs.emplace_back(member.Name(), member.Item().AsString());
  }
  return pairs;
}

std::string ProblemOf(const std::string& text) {
  LumJson::Value properties;
  return ReadProperties(text, properties);
}

TEST(Properties, KeysEndAtTheFirstSeparator) {
  EXPECT_THAT(Read("a=1\nb:2\nc 3\nd\t=\t4\ne = : 5\nf\ng==6\nh  :7"),
              ElementsAre(Pair("a", "1"), Pair("b", "2"), Pair("c", "3"), Pair("d", "4"),
                          Pair("e", ": 5"), Pair("f", ""), Pair("g", "=6"), Pair("h", "7")));
}

TEST(Properties, OnlyLeadingBlanksAreDropped) {
  EXPECT_THAT(Read(" \t\f a = 1 \t\n"), ElementsAre(Pair("a", "1 \t")));
}

TEST(Properties, CommentsAndEmptyLinesCountForNothing) {
  EXPECT_THAT(Read("# one\n! two \\\n  \t\n\n   # three\na=1#2!3\n"),
              ElementsAre(Pair("a", "1#2!3")));
  EXPECT_THAT(Read(""), IsEmpty());
  EXPECT_THAT(Read("#only"), IsEmpty());
}

TEST(Properties, EveryLineEndIsKnown) {
  EXPECT_THAT(Read("a=1\rb=2\r\nc=3\nd=4"),
              ElementsAre(Pair("a", "1"), Pair("b", "2"), Pair("c", "3"), Pair("d", "4")));
}

TEST(Properties, ABackslashContinuesALine) {
  EXPECT_THAT(Read("a=1,\\\n    2,\\\r\n\t3\nb=\\\n"),
              ElementsAre(Pair("a", "1,2,3"), Pair("b", "")));
  EXPECT_THAT(Read("a=1\\\n# no comment\n"), ElementsAre(Pair("a", "1# no comment")));
  EXPECT_THAT(Read("a=1\\\n\nb=2"), ElementsAre(Pair("a", "1"), Pair("b", "2")));
  EXPECT_THAT(Read("ke\\\n  y=v"), ElementsAre(Pair("key", "v")));
}

TEST(Properties, AnEvenNumberOfBackslashesDoesNot) {
  EXPECT_THAT(Read("a=1\\\\\nb=2\\\\\\\n3"), ElementsAre(Pair("a", "1\\"), Pair("b", "2\\3")));
}

TEST(Properties, EscapesAreUndoneInKeysAndValues) {
  EXPECT_THAT(Read("a\\=b\\:c\\ d=\\t\\n\\r\\f\\\\\\q\\\"\\#"),
              ElementsAre(Pair("a=b:c d", "\t\n\r\f\\q\"#")));
}

TEST(Properties, UnicodeEscapesBecomeUtf8) {
  EXPECT_THAT(Read("\\u0061=\\u00e9\\u20AC\\uD83D\\ude00\\u0000z"),
              ElementsAre(Pair("a", std::string("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\0z", 11))));
}

TEST(Properties, Utf8IsKept) {
  EXPECT_THAT(Read("\xE4\xBD\xA0=\xE5\xA5\xBD"), ElementsAre(Pair("\xE4\xBD\xA0", "\xE5\xA5\xBD")));
}

TEST(Properties, TheLastValueOfAKeyCounts) {
  EXPECT_THAT(Read("a=1\nb=2\na=3"), ElementsAre(Pair("a", "3"), Pair("b", "2")));
}

TEST(Properties, ABackslashAtTheEndStandsForNothing) {
  EXPECT_THAT(Read("a=1\\"), ElementsAre(Pair("a", "1")));
}

TEST(Properties, MalformedUnicodeEscapesNameTheirLine) {
  for (const char* value :
       {"\\u", "\\u12", "\\u12g4", "\\ud800", "\\udc00", "\\ud800\\u0041", "\\ud800x"}) {
    EXPECT_EQ(ProblemOf("# one\nok=\\\n 1\nbad=" + std::string(value)), "line 4: malformed \\uXXXX")
        << value;
  }
}

TEST(Properties, BytesThatAreNoUtf8NameTheirLine) {
  EXPECT_EQ(ProblemOf("a=1\nb=\xE9\n"), "line 2: not UTF-8");
}

}  // namespace
