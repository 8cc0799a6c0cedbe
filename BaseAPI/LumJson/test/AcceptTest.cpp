// Documents that every reader has to accept, and what is made of them.
#include <gtest/gtest.h>

#include <iterator>

#include "Cases.h"
#include "LumJson.h"

namespace {

using lumtest::Accepted;
using namespace std::string_view_literals;

constexpr Accepted kAccepted[] = {
    // Arrays.
    {"ArrayWithBlanksInside", "[[ ]  ]"sv, "[[]]"sv},
    {"ArrayEmpty", "[]"sv, "[]"sv},
    {"ArrayOfEmptyString", "[\"\"]"sv, "[\"\"]"sv},
    {"ArrayOfEmptyArrays", "[[],[[]]]"sv, "[[],[[]]]"sv},
    {"ArrayOfFalse", "[false]"sv, "[false]"sv},
    {"ArrayOfAllKinds", "[null, 1, \"1\", {}, [], true]"sv, "[null,1,\"1\",{},[],true]"sv},
    {"ArrayOfNull", "[null]"sv, "[null]"sv},
    {"ArrayWithNewlineBeforeBracket", "[1\n]"sv, "[1]"sv},
    {"ArrayBehindBlank", " [1]"sv, "[1]"sv},
    {"ArrayBeforeBlank", "[2] "sv, "[2]"sv},
    {"ArrayEndingWithNewline", "[\"a\"]\n"sv, "[\"a\"]"sv},
    {"ArrayOfSeveralNulls", "[1,null,null,null,2]"sv, "[1,null,null,null,2]"sv},
    // Numbers.
    {"NumberWithFractionAndExponent", "[123e65]"sv, "[1.23e+67]"sv},
    {"NumberZeroWithPlusExponent", "[0e+1]"sv, "[0.0]"sv},
    {"NumberZeroWithExponent", "[0e1]"sv, "[0.0]"sv},
    {"NumberBehindBlank", "[ 4]"sv, "[4]"sv},
    {"NumberCloseToZero",
     "[-0.000000000000000000000000000000000000000000000000000000000000000000000000000001]"sv,
     "[-1e-78]"sv},
    {"NumberIntegerWithExponent", "[20e1]"sv, "[200.0]"sv},
    {"NumberMinusZero", "[-0]"sv, "[-0.0]"sv},
    {"NumberMinusZeroWithFraction", "[-0.0]"sv, "[-0.0]"sv},
    {"NumberNegative", "[-123]"sv, "[-123]"sv},
    {"NumberMinusOne", "[-1]"sv, "[-1]"sv},
    {"NumberCapitalE", "[1E22]"sv, "[1e+22]"sv},
    {"NumberCapitalENegative", "[1E-2]"sv, "[0.01]"sv},
    {"NumberCapitalEPlus", "[1E+2]"sv, "[100.0]"sv},
    {"NumberExponent", "[123e45]"sv, "[1.23e+47]"sv},
    {"NumberFractionAndExponent", "[123.456e78]"sv, "[1.23456e+80]"sv},
    {"NumberNegativeExponent", "[1e-2]"sv, "[0.01]"sv},
    {"NumberPlusExponent", "[1e+2]"sv, "[100.0]"sv},
    {"NumberSimple", "[123]"sv, "[123]"sv},
    {"NumberFraction", "[123.456789]"sv, "[123.456789]"sv},
    {"NumberExponentWithLeadingZeros", "[1e0007]"sv, "[10000000.0]"sv},
    {"NumberFractionOfZeros", "[10.000]"sv, "[10.0]"sv},
    // Objects.
    {"ObjectOfTwo", "{\"asd\":\"sdf\", \"dfg\":\"fgh\"}"sv, "{\"asd\":\"sdf\",\"dfg\":\"fgh\"}"sv},
    {"ObjectOfOne", "{\"asd\":\"sdf\"}"sv, "{\"asd\":\"sdf\"}"sv},
    {"ObjectWithOneNameTwice", "{\"a\":\"b\",\"a\":\"c\"}"sv, "{\"a\":\"c\"}"sv},
    {"ObjectWithOneMemberTwice", "{\"a\":\"b\",\"a\":\"b\"}"sv, "{\"a\":\"b\"}"sv},
    {"ObjectEmpty", "{}"sv, "{}"sv},
    {"ObjectWithBlankInside", "{ \t\r\n}"sv, "{}"sv},
    {"ObjectWithEmptyName", "{\"\":0}"sv, "{\"\":0}"sv},
    {"ObjectWithEscapedZeroInName", "{\"foo\\u0000bar\": 42}"sv, "{\"foo\\u0000bar\":42}"sv},
    {"ObjectOfExtremeNumbers", "{ \"min\": -1.0e+28, \"max\": 1.0e+28 }"sv,
     "{\"min\":-1e+28,\"max\":1e+28}"sv},
    {"ObjectOfLongStrings",
     "{\"x\":[{\"id\": \"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\"}], \"id\": "
     "\"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\"}"sv,
     "{\"x\":[{\"id\":\"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\"}],\"id\":"
     "\"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\"}"sv},
    {"ObjectOfEmptyArray", "{\"a\":[]}"sv, "{\"a\":[]}"sv},
    {"ObjectWithEscapedString", "{\"title\":\"\\u041f\\u043e\\u043b\"}"sv,
     "{\"title\":\"\xD0\x9F\xD0\xBE\xD0\xBB\"}"sv},
    {"ObjectWithNewlines", "{\n\"a\": \"b\"\n}"sv, "{\"a\":\"b\"}"sv},
    // Strings.
    {"StringOfEscapesForOneToThreeBytes", "[\"\\u0060\\u012a\\u12AB\"]"sv,
     "[\"`\xC4\xAA\xE1\x8A\xAB\"]"sv},
    {"StringOfEscapedPair", "[\"\\uD801\\udc37\"]"sv, "[\"\xF0\x90\x90\xB7\"]"sv},
    {"StringOfEscapedPairs", "[\"\\ud83d\\ude39\\ud83d\\udc8d\"]"sv,
     "[\"\xF0\x9F\x98\xB9\xF0\x9F\x92\x8D\"]"sv},
    {"StringOfAllEscapes", "[\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"]"sv,
     "[\"\\\"\\\\/\\b\\f\\n\\r\\t\"]"sv},
    {"StringOfBackslashAndText", "[\"\\\\u0000\"]"sv, "[\"\\\\u0000\"]"sv},
    {"StringOfQuote", "[\"\\\"\"]"sv, "[\"\\\"\"]"sv},
    {"StringThatLooksLikeComments", "[\"a/*b*/c/*d//e\"]"sv, "[\"a/*b*/c/*d//e\"]"sv},
    {"StringOfBackslashAndA", "[\"\\\\a\"]"sv, "[\"\\\\a\"]"sv},
    {"StringOfBackslashAndN", "[\"\\\\n\"]"sv, "[\"\\\\n\"]"sv},
    {"StringOfEscapedControl", "[\"\\u0012\"]"sv, "[\"\\u0012\"]"sv},
    {"StringOfEscapedNoncharacter", "[\"\\uFFFF\"]"sv, "[\"\xEF\xBF\xBF\"]"sv},
    {"StringInArray", "[\"asd\"]"sv, "[\"asd\"]"sv},
    {"StringInArrayBehindBlank", "[ \"asd\"]"sv, "[\"asd\"]"sv},
    {"StringOfLastPair", "[\"\\uDBFF\\uDFFF\"]"sv, "[\"\xF4\x8F\xBF\xBF\"]"sv},
    {"StringOfFirstPair", "[\"\\uD800\\uDC00\"]"sv, "[\"\xF0\x90\x80\x80\"]"sv},
    {"StringWithEscapedNoBreakSpace", "[\"new\\u00A0line\"]"sv, "[\"new\xC2\xA0line\"]"sv},
    {"StringOfLastNoncharacter", "[\"\xF4\x8F\xBF\xBF\"]"sv, "[\"\xF4\x8F\xBF\xBF\"]"sv},
    {"StringOfNoncharacterFFFF", "[\"\xEF\xBF\xBF\"]"sv, "[\"\xEF\xBF\xBF\"]"sv},
    {"StringOfEscapedZero", "[\"\\u0000\"]"sv, "[\"\\u0000\"]"sv},
    {"StringOfEscapedComma", "[\"\\u002c\"]"sv, "[\",\"]"sv},
    {"StringPi", "[\"\xCF\x80\"]"sv, "[\"\xCF\x80\"]"sv},
    {"StringOfReservedCharacter", "[\"\xF0\x9B\xBF\xBF\"]"sv, "[\"\xF0\x9B\xBF\xBF\"]"sv},
    {"StringSimple", "[\"asd \"]"sv, "[\"asd \"]"sv},
    {"StringOfBlank", "\" \""sv, "\" \""sv},
    {"StringOfClef", "[\"\\uD834\\uDd1e\"]"sv, "[\"\xF0\x9D\x84\x9E\"]"sv},
    {"StringOfThreeByteCharacter", "[\"\\u0821\"]"sv, "[\"\xE0\xA0\xA1\"]"sv},
    {"StringOfTwoByteCharacter", "[\"\\u0123\"]"sv, "[\"\xC4\xA3\"]"sv},
    {"StringOfLineSeparator", "[\"\xE2\x80\xA8\"]"sv, "[\"\xE2\x80\xA8\"]"sv},
    {"StringOfParagraphSeparator", "[\"\xE2\x80\xA9\"]"sv, "[\"\xE2\x80\xA9\"]"sv},
    {"StringOfSeveralEscapes", "[\"\\u0061\\u30af\\u30EA\\u30b9\"]"sv,
     "[\"a\xE3\x82\xAF\xE3\x83\xAA\xE3\x82\xB9\"]"sv},
    {"StringWithEscapedNewline", "[\"new\\u000Aline\"]"sv, "[\"new\\nline\"]"sv},
    {"StringOfDelete", "[\"\x7F\"]"sv, "[\"\x7F\"]"sv},
    {"StringOfEscapedLetter", "[\"\\uA66D\"]"sv, "[\"\xEA\x99\xAD\"]"sv},
    {"StringOfEscapedBackslash", "[\"\\u005C\"]"sv, "[\"\\\\\"]"sv},
    {"StringOfBrackets", "[\"\xE2\x8D\x82\xE3\x88\xB4\xE2\x8D\x82\"]"sv,
     "[\"\xE2\x8D\x82\xE3\x88\xB4\xE2\x8D\x82\"]"sv},
    {"StringOfEscaped10FFFE", "[\"\\uDBFF\\uDFFE\"]"sv, "[\"\xF4\x8F\xBF\xBE\"]"sv},
    {"StringOfEscaped1FFFE", "[\"\\uD83F\\uDFFE\"]"sv, "[\"\xF0\x9F\xBF\xBE\"]"sv},
    {"StringOfEscapedZeroWidthSpace", "[\"\\u200B\"]"sv, "[\"\xE2\x80\x8B\"]"sv},
    {"StringOfEscapedInvisiblePlus", "[\"\\u2064\"]"sv, "[\"\xE2\x81\xA4\"]"sv},
    {"StringOfEscapedFDD0", "[\"\\uFDD0\"]"sv, "[\"\xEF\xB7\x90\"]"sv},
    {"StringOfEscapedFFFE", "[\"\\uFFFE\"]"sv, "[\"\xEF\xBF\xBE\"]"sv},
    {"StringWithEscapedQuote", "[\"\\u0022\"]"sv, "[\"\\\"\"]"sv},
    {"StringWithEuroAndClef", "[\"\xE2\x82\xAC\xF0\x9D\x84\x9E\"]"sv,
     "[\"\xE2\x82\xAC\xF0\x9D\x84\x9E\"]"sv},
    {"StringWithDeleteInside",
     "[\"a\x7F"
     "a\"]"sv,
     "[\"a\x7F"
     "a\"]"sv},
    {"StringOfReplacementCharacter", "[\"\xEF\xBF\xBD\"]"sv, "[\"\xEF\xBF\xBD\"]"sv},
    // Structure.
    {"LonelyFalse", "false"sv, "false"sv},
    {"LonelyTrue", "true"sv, "true"sv},
    {"LonelyInteger", "42"sv, "42"sv},
    {"LonelyNegativeReal", "-0.1"sv, "-0.1"sv},
    {"LonelyString", "\"asd\""sv, "\"asd\""sv},
    {"LonelyEmptyString", "\"\""sv, "\"\""sv},
    {"TrueInArray", "[true]"sv, "[true]"sv},
    {"BlanksOfAllKindsAround", " \t\r\n[] \t\r\n"sv, "[]"sv},
    {"BlankArray", " [] "sv, "[]"sv},
    {"BlanksEverywhere", "\n{ \"a\" : [ 1 , 2 ] , \"b\" : { } }\r\n"sv, "{\"a\":[1,2],\"b\":{}}"sv},
};
static_assert(std::size(kAccepted) >= 95);

// What a document means does not show when its string is asked for: wrap it into an array.
std::string WrittenBack(const LumJson::Value& value) {
  LumJson::Value array;
  array.Append(value);
  const std::string text = array.JsonValueToString();
  return text.substr(1, text.size() - 2);
}

class AcceptTest : public testing::TestWithParam<Accepted> {};

TEST_P(AcceptTest, IsReadAndWrittenBack) {
  LumJson::Value value;
  ASSERT_TRUE(value.Parse(std::string(GetParam().text)));
  EXPECT_EQ(GetParam().written, WrittenBack(value));
}

TEST_P(AcceptTest, IsReadAgainFromWhatWasWritten) {
  LumJson::Value value;
  ASSERT_TRUE(value.Parse(std::string(GetParam().text)));
  LumJson::Value again = lumtest::Read(value.ToStyledString());
  EXPECT_EQ(value, again);
  EXPECT_EQ(GetParam().written, WrittenBack(again));
}

INSTANTIATE_TEST_SUITE_P(Documents, AcceptTest, testing::ValuesIn(kAccepted),
                         lumtest::NameOf<Accepted>);

TEST(AcceptNullTest, LonelyNullIsADocument) {
  LumJson::Value value(1);
  EXPECT_TRUE(value.Parse("null"));
  EXPECT_TRUE(value.IsNull());
  EXPECT_EQ("null\n", value.ToStyledString());
}

}  // namespace
