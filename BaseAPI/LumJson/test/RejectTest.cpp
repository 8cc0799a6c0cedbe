// Documents that every reader has to refuse.
#include <gtest/gtest.h>

#include <iterator>

#include "Cases.h"
#include "LumJson.h"

namespace {

using lumtest::Refused;
using namespace std::string_view_literals;

constexpr Refused kRefused[] = {
    // Arrays.
    {"ArrayWithoutComma", "[1 true]"sv},
    {"ArrayWithInvalidByte", "[a\xE5]"sv},
    {"ArrayWithColon", "[\"\": 1]"sv},
    {"ArrayBeforeComma", "[\"\"],"sv},
    {"ArrayWithTwoCommas", "[1,,2]"sv},
    {"ArrayWithTwoCommasAtItsEnd", "[\"x\",,]"sv},
    {"ArrayBeforeSecondBracket", "[\"x\"]]"sv},
    {"ArrayWithCommaAtItsEnd", "[\"\",]"sv},
    {"ArrayWithNumberAndCommaAtItsEnd", "[1,]"sv},
    {"ArrayWithoutEnd", "[\"x\""sv},
    {"ArrayWithoutValue", "[x"sv},
    {"ArrayOfArraysWithoutComma", "[3[4]]"sv},
    {"ArrayWithLoneInvalidByte", "[\xFF]"sv},
    {"ArrayOfComma", "[,]"sv},
    {"ArrayOfMinus", "[-]"sv},
    {"ArrayWithoutFirst", "[   , \"\"]"sv},
    {"ArrayEndingInNewlines", "[\"a\",\n4\n,1,"sv},
    {"ArrayEndingInComma", "[1,"sv},
    {"ArrayEndingInBlankComma", "[1,\n1\n,1"sv},
    {"ArrayOfStar", "[*]"sv},
    {"ArrayOfTwoCommas", "[,,]"sv},
    {"ArrayOfFormFeedInString", "[\"\x0B\"\\f]"sv},
    {"ArrayOpen", "["sv},
    {"ArrayOpenOfString", "[\""sv},
    {"ArrayOpenOfObject", "[{}"sv},
    {"ArrayClosedByBrace", "[1}"sv},
    {"ArrayWithUnquotedText", "[abc]"sv},
    {"ArrayInParentheses", "(1)"sv},
    // Literals that break off.
    {"IncompleteFalse", "[fals]"sv},
    {"IncompleteNull", "[nul]"sv},
    {"IncompleteTrue", "[tru]"sv},
    {"IncompleteLonelyTrue", "tru"sv},
    {"IncompleteLonelyNull", "nul"sv},
    {"LiteralTooLong", "[nulll]"sv},
    {"LiteralCapitalised", "[True]"sv},
    {"LiteralInCapitals", "[NULL]"sv},
    // Numbers.
    {"NumberWithZeroByte", "123\0"sv},
    {"NumberPlusPlus", "[++1234]"sv},
    {"NumberPlus", "[+1]"sv},
    {"NumberPlusInfinity", "[+Inf]"sv},
    {"NumberMinusLeadingZero", "[-01]"sv},
    {"NumberMinusPointDigit", "[-.1]"sv},
    {"NumberMinusOnePoint", "[-1.0.]"sv},
    {"NumberMinusTwoPoint", "[-2.]"sv},
    {"NumberMinusNaN", "[-NaN]"sv},
    {"NumberPointMinus", "[.-1]"sv},
    {"NumberPointDigitExponent", "[.2e-3]"sv},
    {"NumberZeroPointOneTwo", "[0.1.2]"sv},
    {"NumberZeroCapitalE", "[0E]"sv},
    {"NumberZeroCapitalEPlus", "[0E+]"sv},
    {"NumberZeroPointEOne", "[0.e1]"sv},
    {"NumberZeroE", "[0e]"sv},
    {"NumberZeroEPlus", "[0e+]"sv},
    {"NumberZeroThreeCapitalE", "[0.3E]"sv},
    {"NumberZeroThreeE", "[0.3e]"sv},
    {"NumberZeroThreeEPlus", "[0.3e+]"sv},
    {"NumberOneEMinus", "[1.0e-]"sv},
    {"NumberOneE", "[1.0e]"sv},
    {"NumberOneEPlus", "[1.0e+]"sv},
    {"NumberOneEMinusWithoutPoint", "[1e-]"sv},
    {"NumberWithThousandsBlank", "[1 000.0]"sv},
    {"NumberOneEE", "[1eE2]"sv},
    {"NumberTwoPoint", "[2.]"sv},
    {"NumberTwoPointE", "[2.e3]"sv},
    {"NumberTwoPointEMinus", "[2.e-3]"sv},
    {"NumberTwoPointEPlus", "[2.e+3]"sv},
    {"NumberNineE", "[9.e+]"sv},
    {"NumberInfinity", "[Inf]"sv},
    {"NumberInfinityWord", "[Infinity]"sv},
    {"NumberNaN", "[NaN]"sv},
    {"NumberFullwidthDigit", "[\xEF\xBC\x91]"sv},
    {"NumberExpression", "[1+2]"sv},
    {"NumberHexadecimalDigit", "[0x1]"sv},
    {"NumberHexadecimal", "[0x42]"sv},
    {"NumberMinusInfinity", "[-Infinity]"sv},
    {"NumberMinusText", "[-foo]"sv},
    {"NumberMinusBlankDigit", "[- 1]"sv},
    {"NumberMinusMinus", "[--1]"sv},
    {"NumberMinusZeroDigits", "[-012]"sv},
    {"NumberWithInvalidByteInExponent", "[1e1\xE5]"sv},
    {"NumberWithInvalidByte", "[123\xE5]"sv},
    {"NumberThenInvalidByte", "[0\xE5]"sv},
    {"NumberWithLetter", "[1.2a-3]"sv},
    {"NumberWithLetters", "[1.8011670033376514H-308]"sv},
    {"NumberWithLeadingZero", "[012]"sv},
    {"NumberWithLeadingZeros", "[007]"sv},
    {"NumberPointDigit", "[.123]"sv},
    {"NumberPoint", "[.]"sv},
    {"NumberWithUnderscore", "[1_000]"sv},
    {"NumberWithPointBeforeComma", "[1.,5]"sv},
    {"NumberEFirst", "[e5]"sv},
    {"NumberExponentWithPoint", "[1e2.5]"sv},
    {"NumberTwoMinusInExponent", "[1e--2]"sv},
    {"NumberPlusMinusInExponent", "[1e+-2]"sv},
    {"NumberLongSuffix", "[10L]"sv},
    {"NumberLonelyMinus", "-"sv},
    {"NumberLonelyPointed", "1."sv},
    {"NumberLonelyExponent", "1e"sv},
    // Objects.
    {"ObjectWithNameOnly", "[{\"x\", null}]"sv},
    {"ObjectWithTwoColons", "{\"x\"::\"b\"}"sv},
    {"ObjectWithCommaForColon", "{\"x\", null}"sv},
    {"ObjectWithUnquotedNonAsciiName", "{\xF0\x9F\x87\xA8\xF0\x9F\x87\xAD}"sv},
    {"ObjectBeforeTrailingLetter", "{\"a\":\"a\" 123}"sv},
    {"ObjectWithBracketName", "{[: \"x\"}"sv},
    {"ObjectWithValueMissing", "{\"a\":"sv},
    {"ObjectWithColonMissing", "{\"a\" \"b\"}"sv},
    {"ObjectWithNameNotClosed", "{\"a"sv},
    {"ObjectWithBareName", "{a: \"b\"}"sv},
    {"ObjectWithNumberName", "{1:1}"sv},
    {"ObjectWithNumberNameLong", "{9999E9999:1}"sv},
    {"ObjectWithNullNames", "{null:null,null:null}"sv},
    {"ObjectWithTrueName", "{true: 1}"sv},
    {"ObjectWithArrayName", "{[]: 1}"sv},
    {"ObjectWithManyCommas", "{\"id\":0,,,,,}"sv},
    {"ObjectWithSingleQuotes", "{'a':0}"sv},
    {"ObjectWithSingleQuotedValue", "{\"a\":'b'}"sv},
    {"ObjectWithCommaAtItsEnd", "{\"id\":0,}"sv},
    {"ObjectBeforeComment", "{\"a\":\"b\"}/**/"sv},
    {"ObjectBeforeOpenComment", "{\"a\":\"b\"}/**//"sv},
    {"ObjectBeforeLineComment", "{\"a\":\"b\"}//"sv},
    {"ObjectBeforeSlash", "{\"a\":\"b\"}/"sv},
    {"ObjectBeforeHash", "{\"a\":\"b\"}#"sv},
    {"ObjectWithTwoCommas", "{\"a\":\"b\",,\"c\":\"d\"}"sv},
    {"ObjectWithCommaFirst", "{,\"a\":1}"sv},
    {"ObjectOfComma", "{,}"sv},
    {"ObjectOfColon", "{:}"sv},
    {"ObjectWithoutName", "{:\"b\"}"sv},
    {"ObjectWithUnquotedName", "{a\"b\":1}"sv},
    {"ObjectWithOpenValue", "{\"a\":\"a"sv},
    {"ObjectWithLonelyString", "{ \"foo\" : \"bar\", \"a\" }"sv},
    {"ObjectBeforeBrace", "{\"a\":\"b\"}}"sv},
    {"ObjectBeforeBracket", "{\"a\":true} \"x\""sv},
    {"ObjectClosedByBracket", "{\"a\":1]"sv},
    {"ObjectOpen", "{"sv},
    {"ObjectOpenBehindComma", "{\"a\":1,"sv},
    {"ObjectWithSemicolon", "{\"a\":1;\"b\":2}"sv},
    {"ObjectWithEqualsSign", "{\"a\"=1}"sv},
    {"ObjectWithArrow", "{\"a\"=>1}"sv},
    // Strings.
    {"StringOfBlankOnly", " "sv},
    {"StringOfHighSurrogateAndBrokenEscape", "[\"\\uD800\\\"]"sv},
    {"StringOfHighSurrogateAndU", "[\"\\uD800\\u\"]"sv},
    {"StringOfHighSurrogateAndOneDigit", "[\"\\uD800\\u1\"]"sv},
    {"StringOfHighSurrogateAndTwoDigits", "[\"\\uD800\\u1x\"]"sv},
    {"StringOfAccentUnquoted", "[\xC3\xA9]"sv},
    {"StringOfEscapedZeroByte", "[\"\\\0\"]"sv},
    {"StringOfEscapedX", "[\"\\x00\"]"sv},
    {"StringOfThreeBackslashes", "[\"\\\\\\\"]"sv},
    {"StringWithEscapedTab", "[\"\\\t\"]"sv},
    {"StringWithEscapedEmoji", "[\"\\\xF0\x9F\x8C\x80\"]"sv},
    {"StringWithLoneBackslash", "[\"\\\"]"sv},
    {"StringWithShortEscape", "[\"\\u00A\"]"sv},
    {"StringWithShortPair", "[\"\\uD834\\uDd\"]"sv},
    {"StringWithTooShortPair", "[\"\\uD800\\uD800\\x\"]"sv},
    {"StringWithInvalidByteBehindU", "[\"\\u\xE5\"]"sv},
    {"StringWithEscapedA", "[\"\\a\"]"sv},
    {"StringWithNoHexDigit", "[\"\\uqqqq\"]"sv},
    {"StringWithInvalidByteEscaped", "[\"\\\xE5\"]"sv},
    {"StringWithLeadingEscapeOutside", "[\\u0020\"asd\"]"sv},
    {"StringWithoutQuotes", "[\\n]"sv},
    {"StringInSingleQuotes", "['single quote']"sv},
    {"StringOfLonelyLetters", "abc"sv},
    {"StringWithoutEnd", "[\"\\"sv},
    {"StringWithZeroByte", "[\"a\0a\"]"sv},
    {"StringWithNewline", "[\"new\nline\"]"sv},
    {"StringWithTab", "[\"\t\"]"sv},
    {"StringWithCarriageReturn", "[\"a\rb\"]"sv},
    {"StringWithUnitSeparator",
     "[\"a\x1F"
     "b\"]"sv},
    {"StringWithCapitalU", "\"\\UA66D\""sv},
    {"StringBeforeLetter", "\"\"x"sv},
    {"StringOpen", "\""sv},
    {"StringOpenBehindText", "\"abc"sv},
    {"StringWithOctalEscape", "[\"\\012\"]"sv},
    {"StringWithQuoteEscape", "[\"\\'\"]"sv},
    {"StringWithHexSign", "[\"\\u-123\"]"sv},
    {"StringWithHexBlank", "[\"\\u 123\"]"sv},
    // Structure.
    {"StructureAngleBrackets", "<null>"sv},
    {"StructureAngleBracketDot", "<.>"sv},
    {"StructureArrayBeforeLetter", "[1]x"sv},
    {"StructureArrayBeforeBracket", "[1]]"sv},
    {"StructureUnquotedStringBehindEscape", "[\"asd]"sv},
    {"StructureLettersWithAccent", "a\xC3\xA5"sv},
    {"StructureCapitalTrue", "[True]"sv},
    {"StructureCommaForBrace", "{\"x\": true,"sv},
    {"StructureDoubleArray", "[][]"sv},
    {"StructureEmpty", ""sv},
    {"StructureEndBracket", "]"sv},
    {"StructureEndBrace", "}"sv},
    {"StructureColon", ":"sv},
    {"StructureComma", ","sv},
    {"StructureByteOrderMarkAlone", "\xEF\xBB\xBF"sv},
    {"StructureIncompleteByteOrderMark", "\xEF\xBB{}"sv},
    {"StructureLonelyInvalidByte", "\xE5"sv},
    {"StructureLonelyBracketAndBrace", "[{"sv},
    {"StructureZeroByteOutside", "[\0]"sv},
    {"StructureZeroByteFirst", "\0[]"sv},
    {"StructureZeroByteBehind", "[]\0"sv},
    {"StructureNumberAndGarbage", "2@"sv},
    {"StructureObjectAndGarbage", "{}}"sv},
    {"StructureObjectOfBrackets", "{]"sv},
    {"StructureBracketComma", "[,"sv},
    {"StructureOpenObjectInArray", "[{\"\":[{\"\":["sv},
    {"StructureArrayApostrophe", "['"sv},
    {"StructureArrayQuoteA", "[\"a"sv},
    {"StructureObjectComma", "{,"sv},
    {"StructureObjectBracket", "{["sv},
    {"StructureObjectQuoteA", "{\"a"sv},
    {"StructureObjectApostropheA", "{'a'"sv},
    {"StructureEscapesOutside", "[\"\\{[\"\\{[\"\\{[\"\\{"sv},
    {"StructureInvalidByteAlone", "\xE9"sv},
    {"StructureStarAlone", "*"sv},
    {"StructureTwoObjects", "{\"a\":\"b\"}#{}"sv},
    {"StructureEscapedBracket", "[\\u000A\"\"]"sv},
    {"StructureUnclosedArray", "[1"sv},
    {"StructureUnclosedArrayOfFalse", "[ false, nul"sv},
    {"StructureUnclosedArrayOfTrue", "[ true, fals"sv},
    {"StructureUnclosedArrayOfNull", "[ false, tru"sv},
    {"StructureUnclosedObject", "{\"asd\":\"asd\""sv},
    {"StructureAccentOutside", "\xC3\xA5"sv},
    {"StructureFormFeedAsBlank", "[\x0C]"sv},
    {"StructureVerticalTabAsBlank", "[\x0B]"sv},
    {"StructureWordJoinerAsBlank", "[\xE2\x81\xA0]"sv},
    {"StructureNoBreakSpaceAsBlank", "[\xC2\xA0]"sv},
    {"StructureComment", "[1] // one"sv},
    {"StructureCommentInside", "[/**/]"sv},
    {"StructureTwoNumbers", "1 2"sv},
    {"StructureTwoLiterals", "true false"sv},
    {"StructureTwoDocumentsOnTwoLines", "{}\n{}"sv},
    {"StructureAssignment", "x={}"sv},
    {"StructureDollar", "$"sv},
    {"StructureMarkup", "<html><body>503</body></html>"sv},
};
static_assert(std::size(kRefused) >= 188);

class RejectTest : public testing::TestWithParam<Refused> {};

TEST_P(RejectTest, IsRefusedAndLeavesNull) {
  LumJson::Value value("before");
  EXPECT_FALSE(value.Parse(std::string(GetParam().text)));
  EXPECT_TRUE(value.IsNull());
}

// A value that was read in part must not come to light, nor be lost.
TEST_P(RejectTest, IsRefusedBehindGoodValues) {
  LumJson::Value value(true);
  EXPECT_FALSE(value.Parse("[{\"a\":[1,\"a text that needs memory of its own\"]}, " +
                           std::string(GetParam().text) + "]"));
  EXPECT_TRUE(value.IsNull());
}

INSTANTIATE_TEST_SUITE_P(Documents, RejectTest, testing::ValuesIn(kRefused),
                         lumtest::NameOf<Refused>);

// Deep documents that never end.
TEST(RejectDeepTest, AHundredThousandOpenArrays) {
  LumJson::Value value;
  EXPECT_FALSE(value.Parse(std::string(100000, '[')));
  EXPECT_TRUE(value.IsNull());
}

TEST(RejectDeepTest, FiftyThousandOpenObjectsInArrays) {
  std::string text;
  for (int i = 0; i < 50000; ++i) {
    text += "[{\"\":";
  }
  LumJson::Value value;
  EXPECT_FALSE(value.Parse(text + "\n"));
  EXPECT_TRUE(value.IsNull());
}

}  // namespace
