// What is read as a document, and what is made of it.
#include <gtest/gtest.h>

#include <cmath>
#include <iterator>
#include <limits>
#include <string>

#include "Cases.h"
#include "LumJson.h"

namespace {

using LumJson::Value;
using lumtest::Accepts;
using lumtest::Read;
using namespace std::string_view_literals;

// ---- Documents that every reader has to accept ----

// The same document without blanks, as it is written back.
struct Accepted {
  std::string_view text;
  std::string_view written;
};

// Written back as they stand.
constexpr std::string_view kAsTheyStand[] = {
    // Arrays.
    "[]", "[\"\"]", "[[],[[]]]", "[false]", "[null]", "[1,null,null,null,2]",
    // Numbers.
    "[-0.0]", "[-123]", "[-1]", "[123]", "[123.456789]",
    // Objects.
    "{\"asd\":\"sdf\"}", "{}", "{\"\":0}", "{\"a\":[]}",
    // Strings.
    "[\"\\\\u0000\"]", "[\"\\\"\"]", "[\"a/*b*/c/*d//e\"]", "[\"\\\\a\"]", "[\"\\\\n\"]",
    "[\"\\u0012\"]", "[\"asd\"]", "[\"\xF4\x8F\xBF\xBF\"]", "[\"\xEF\xBF\xBF\"]", "[\"\\u0000\"]",
    "[\"\xCF\x80\"]", "[\"\xF0\x9B\xBF\xBF\"]", "[\"asd \"]", "\" \"", "[\"\xE2\x80\xA8\"]",
    "[\"\xE2\x80\xA9\"]", "[\"\x7F\"]", "[\"\xE2\x8D\x82\xE3\x88\xB4\xE2\x8D\x82\"]",
    "[\"\xE2\x82\xAC\xF0\x9D\x84\x9E\"]",
    "[\"a\x7F"
    "a\"]",
    "[\"\xEF\xBF\xBD\"]",
    // Structure.
    "false", "true", "42", "-0.1", "\"asd\"", "\"\"", "[true]"};

constexpr Accepted kRewritten[] = {
    // Arrays.
    {"[[ ]  ]", "[[]]"},
    {"[null, 1, \"1\", {}, [], true]", "[null,1,\"1\",{},[],true]"},
    {"[1\n]", "[1]"},
    {" [1]", "[1]"},
    {"[2] ", "[2]"},
    {"[\"a\"]\n", "[\"a\"]"},
    // Numbers.
    {"[123e65]", "[1.23e+67]"},
    {"[0e+1]", "[0.0]"},
    {"[0e1]", "[0.0]"},
    {"[ 4]", "[4]"},
    {"[-0.000000000000000000000000000000000000000000000000000000000000000000000000000001]",
     "[-1e-78]"},
    {"[20e1]", "[200.0]"},
    {"[-0]", "[-0.0]"},
    {"[1E22]", "[1e+22]"},
    {"[1E-2]", "[0.01]"},
    {"[1E+2]", "[100.0]"},
    {"[123e45]", "[1.23e+47]"},
    {"[123.456e78]", "[1.23456e+80]"},
    {"[1e-2]", "[0.01]"},
    {"[1e+2]", "[100.0]"},
    {"[1e0007]", "[10000000.0]"},
    {"[10.000]", "[10.0]"},
    // Objects.
    {"{\"asd\":\"sdf\", \"dfg\":\"fgh\"}", "{\"asd\":\"sdf\",\"dfg\":\"fgh\"}"},
    {"{\"a\":\"b\",\"a\":\"c\"}", "{\"a\":\"c\"}"},
    {"{\"a\":\"b\",\"a\":\"b\"}", "{\"a\":\"b\"}"},
    {"{ \t\r\n}", "{}"},
    {"{\"foo\\u0000bar\": 42}", "{\"foo\\u0000bar\":42}"},
    {"{ \"min\": -1.0e+28, \"max\": 1.0e+28 }", "{\"min\":-1e+28,\"max\":1e+28}"},
    {"{\"x\":[{\"id\": \"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\"}], \"id\": "
     "\"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\"}",
     "{\"x\":[{\"id\":\"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\"}],\"id\":"
     "\"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\"}"},
    {"{\"title\":\"\\u041f\\u043e\\u043b\"}", "{\"title\":\"\xD0\x9F\xD0\xBE\xD0\xBB\"}"},
    {"{\n\"a\": \"b\"\n}", "{\"a\":\"b\"}"},
    // Strings.
    {"[\"\\u0060\\u012a\\u12AB\"]", "[\"`\xC4\xAA\xE1\x8A\xAB\"]"},
    {"[\"\\uD801\\udc37\"]", "[\"\xF0\x90\x90\xB7\"]"},
    {"[\"\\ud83d\\ude39\\ud83d\\udc8d\"]", "[\"\xF0\x9F\x98\xB9\xF0\x9F\x92\x8D\"]"},
    {"[\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"]", "[\"\\\"\\\\/\\b\\f\\n\\r\\t\"]"},
    {"[\"\\uFFFF\"]", "[\"\xEF\xBF\xBF\"]"},
    {"[ \"asd\"]", "[\"asd\"]"},
    {"[\"\\uDBFF\\uDFFF\"]", "[\"\xF4\x8F\xBF\xBF\"]"},
    {"[\"\\uD800\\uDC00\"]", "[\"\xF0\x90\x80\x80\"]"},
    {"[\"new\\u00A0line\"]", "[\"new\xC2\xA0line\"]"},
    {"[\"\\u002c\"]", "[\",\"]"},
    {"[\"\\uD834\\uDd1e\"]", "[\"\xF0\x9D\x84\x9E\"]"},
    {"[\"\\u0821\"]", "[\"\xE0\xA0\xA1\"]"},
    {"[\"\\u0123\"]", "[\"\xC4\xA3\"]"},
    {"[\"\\u0061\\u30af\\u30EA\\u30b9\"]", "[\"a\xE3\x82\xAF\xE3\x83\xAA\xE3\x82\xB9\"]"},
    {"[\"new\\u000Aline\"]", "[\"new\\nline\"]"},
    {"[\"\\uA66D\"]", "[\"\xEA\x99\xAD\"]"},
    {"[\"\\u005C\"]", "[\"\\\\\"]"},
    {"[\"\\uDBFF\\uDFFE\"]", "[\"\xF4\x8F\xBF\xBE\"]"},
    {"[\"\\uD83F\\uDFFE\"]", "[\"\xF0\x9F\xBF\xBE\"]"},
    {"[\"\\u200B\"]", "[\"\xE2\x80\x8B\"]"},
    {"[\"\\u2064\"]", "[\"\xE2\x81\xA4\"]"},
    {"[\"\\uFDD0\"]", "[\"\xEF\xB7\x90\"]"},
    {"[\"\\uFFFE\"]", "[\"\xEF\xBF\xBE\"]"},
    {"[\"\\u0022\"]", "[\"\\\"\"]"},
    // Structure.
    {" \t\r\n[] \t\r\n", "[]"},
    {" [] ", "[]"},
    {"\n{ \"a\" : [ 1 , 2 ] , \"b\" : { } }\r\n", "{\"a\":[1,2],\"b\":{}}"}};
static_assert(std::size(kAsTheyStand) + std::size(kRewritten) >= 95);

// What a document means does not show when its string is asked for: wrap it into an array.
std::string WrittenBack(const Value& value) {
  Value array;
  array.Append(value);
  const std::string text = array.JsonValueToString();
  return text.substr(1, text.size() - 2);
}

void CheckAccepted(std::string_view text, std::string_view written) {
  const Value value = Read(text);
  EXPECT_EQ(written, WrittenBack(value));
  const Value again = Read(value.ToStyledString());
  EXPECT_EQ(value, again);
  EXPECT_EQ(written, WrittenBack(again));
}

TEST(AcceptTest, IsReadAndWrittenBack) {
  for (const std::string_view text : kAsTheyStand) {
    CheckAccepted(text, text);
  }
  for (const Accepted& document : kRewritten) {
    CheckAccepted(document.text, document.written);
  }
}

TEST(AcceptTest, LonelyNullIsADocument) {
  Value value(1);
  EXPECT_TRUE(value.Parse("null"));
  EXPECT_TRUE(value.IsNull());
  EXPECT_EQ("null\n", value.ToStyledString());
}

// ---- Documents that every reader has to refuse ----

constexpr std::string_view kRefused[] = {
    // Arrays.
    "[1 true]", "[a\xE5]", "[\"\": 1]", "[\"\"],", "[1,,2]", "[\"x\",,]", "[\"x\"]]", "[\"\",]",
    "[1,]", "[\"x\"", "[x", "[3[4]]", "[\xFF]", "[,]", "[-]", "[   , \"\"]", "[\"a\",\n4\n,1,",
    "[1,", "[1,\n1\n,1", "[*]", "[,,]", "[\"\x0B\"\\f]", "[", "[\"", "[{}", "[1}", "[abc]", "(1)",
    // Literals that break off.
    "[fals]", "[nul]", "[tru]", "tru", "nul", "[nulll]", "[True]", "[NULL]",
    // Numbers.
    "123\0"sv, "[++1234]", "[+1]", "[+Inf]", "[-01]", "[-.1]", "[-1.0.]", "[-2.]", "[-NaN]",
    "[.-1]", "[.2e-3]", "[0.1.2]", "[0E]", "[0E+]", "[0.e1]", "[0e]", "[0e+]", "[0.3E]", "[0.3e]",
    "[0.3e+]", "[1.0e-]", "[1.0e]", "[1.0e+]", "[1e-]", "[1 000.0]", "[1eE2]", "[2.]", "[2.e3]",
    "[2.e-3]", "[2.e+3]", "[9.e+]", "[Inf]", "[Infinity]", "[NaN]", "[\xEF\xBC\x91]", "[1+2]",
    "[0x1]", "[0x42]", "[-Infinity]", "[-foo]", "[- 1]", "[--1]", "[-012]", "[1e1\xE5]",
    "[123\xE5]", "[0\xE5]", "[1.2a-3]", "[1.8011670033376514H-308]", "[012]", "[007]", "[.123]",
    "[.]", "[1_000]", "[1.,5]", "[e5]", "[1e2.5]", "[1e--2]", "[1e+-2]", "[10L]", "-", "1.", "1e",
    // Objects.
    "[{\"x\", null}]", "{\"x\"::\"b\"}", "{\"x\", null}", "{\xF0\x9F\x87\xA8\xF0\x9F\x87\xAD}",
    "{\"a\":\"a\" 123}", "{[: \"x\"}", "{\"a\":", "{\"a\" \"b\"}", "{\"a", "{a: \"b\"}", "{1:1}",
    "{9999E9999:1}", "{null:null,null:null}", "{true: 1}", "{[]: 1}", "{\"id\":0,,,,,}", "{'a':0}",
    "{\"a\":'b'}", "{\"id\":0,}", "{\"a\":\"b\"}/**/", "{\"a\":\"b\"}/**//", "{\"a\":\"b\"}//",
    "{\"a\":\"b\"}/", "{\"a\":\"b\"}#", "{\"a\":\"b\",,\"c\":\"d\"}", "{,\"a\":1}", "{,}", "{:}",
    "{:\"b\"}", "{a\"b\":1}", "{\"a\":\"a", "{ \"foo\" : \"bar\", \"a\" }", "{\"a\":\"b\"}}",
    "{\"a\":true} \"x\"", "{\"a\":1]", "{", "{\"a\":1,", "{\"a\":1;\"b\":2}", "{\"a\"=1}",
    "{\"a\"=>1}",
    // Strings.
    " ", "[\"\\uD800\\\"]", "[\"\\uD800\\u\"]", "[\"\\uD800\\u1\"]", "[\"\\uD800\\u1x\"]",
    "[\xC3\xA9]", "[\"\\\0\"]"sv, "[\"\\x00\"]", "[\"\\\\\\\"]", "[\"\\\t\"]",
    "[\"\\\xF0\x9F\x8C\x80\"]", "[\"\\\"]", "[\"\\u00A\"]", "[\"\\uD834\\uDd\"]",
    "[\"\\uD800\\uD800\\x\"]", "[\"\\u\xE5\"]", "[\"\\a\"]", "[\"\\uqqqq\"]", "[\"\\\xE5\"]",
    "[\\u0020\"asd\"]", "[\\n]", "['single quote']", "abc", "[\"\\", "[\"a\0a\"]"sv,
    "[\"new\nline\"]", "[\"\t\"]", "[\"a\rb\"]",
    "[\"a\x1F"
    "b\"]",
    "\"\\UA66D\"", "\"\"x", "\"", "\"abc", "[\"\\012\"]", "[\"\\'\"]", "[\"\\u-123\"]",
    "[\"\\u 123\"]",
    // Structure.
    "<null>", "<.>", "[1]x", "[1]]", "[\"asd]", "a\xC3\xA5", "{\"x\": true,", "[][]", "", "]", "}",
    ":", ",", "\xEF\xBB\xBF", "\xEF\xBB{}", "\xE5", "[{", "\0"sv, "[\0]"sv, "\0[]"sv, "[]\0"sv,
    "2@", "{}}", "{]", "[,", "[{\"\":[{\"\":[", "['", "[\"a", "{,", "{[", "{'a'",
    "[\"\\{[\"\\{[\"\\{[\"\\{", "\xE9", "*", "{\"a\":\"b\"}#{}", "[\\u000A\"\"]", "[1",
    "[ false, nul", "[ true, fals", "[ false, tru", "{\"asd\":\"asd\"", "\xC3\xA5", "[\x0C]",
    "[\x0B]", "[\xE2\x81\xA0]", "[\xC2\xA0]", "[1] // one", "[/**/]", "1 2", "true false", "{}\n{}",
    "x={}", "$", "<html><body>503</body></html>",
    // Byte order marks, UTF-16, ISO 8859-1.
    "\xEF\xBB\xBF{}", "\xFE\xFF\0[\0]"sv, "\xFF\xFE[\0]\0"sv, "[\0\"\0\xE9\0\"\0]\0"sv,
    "\0[\0\"\0\xE9\0\"\0]"sv, "[\"\xE9\"]"};
static_assert(std::size(kRefused) >= 188);

TEST(RejectTest, IsRefusedAndLeavesNull) {
  for (const std::string_view text : kRefused) {
    Value value("before");
    EXPECT_FALSE(value.Parse(std::string(text))) << text;
    EXPECT_TRUE(value.IsNull()) << text;
  }
}

// A value that was read in part must not come to light, nor be lost.
TEST(RejectTest, IsRefusedBehindGoodValues) {
  for (const std::string_view text : kRefused) {
    Value value(true);
    EXPECT_FALSE(value.Parse("[{\"a\":[1,\"a text that needs memory of its own\"]}, " +
                             std::string(text) + "]"))
        << text;
    EXPECT_TRUE(value.IsNull()) << text;
  }
}

TEST(RejectTest, DeepDocumentsThatNeverEnd) {
  std::string objects;
  for (int i = 0; i < 50000; ++i) {
    objects += "[{\"\":";
  }
  for (const std::string& text : {std::string(100000, '['), objects + "\n"}) {
    Value value;
    EXPECT_FALSE(value.Parse(text));
    EXPECT_TRUE(value.IsNull());
  }
}

// ---- What RFC 8259 leaves to each reader ----

double Number(const std::string& text) {
  Value value = Read(text);
  EXPECT_TRUE(value.IsDouble()) << text;
  return value.AsDouble(-1);
}

TEST(OpenCasesTest, NumbersTooLargeForADoubleAreRefused) {
  for (const char* text :
       {"1e400", "-1e400", "1e309", "[123.456e78901]", "-1e+9999", "1.8e308",
        "1797693134862315900000000000000e278", "{\"a\":1E1000}",
        "179769313486231581e291"}) {  // would round to the largest one as a product
    EXPECT_FALSE(Accepts(text)) << text;
  }
  EXPECT_FALSE(Accepts("1" + std::string(400, '0')));
  EXPECT_FALSE(Accepts("-1" + std::string(400, '0') + ".5"));
}

TEST(OpenCasesTest, TheLargestDoubleIsRead) {
  EXPECT_EQ(std::numeric_limits<double>::max(), Number("1.7976931348623157e308"));
  EXPECT_EQ(-std::numeric_limits<double>::max(), Number("-17976931348623157e292"));
  // Nearer to the largest double than to what would come behind it.
  EXPECT_EQ(std::numeric_limits<double>::max(), Number("1.79769313486231580e308"));
}

TEST(OpenCasesTest, NumbersTooSmallForADoubleBecomeZero) {
  for (const char* text : {"1e-400", "123.456e-789", "1e-2147483647", "2e-324", "0.00001e-320"}) {
    EXPECT_EQ(0, Number(text)) << text;
    EXPECT_FALSE(std::signbit(Number(text))) << text;
    EXPECT_TRUE(std::signbit(Number(std::string("-") + text))) << text;
  }
  EXPECT_EQ(0, Number("0." + std::string(400, '0') + "1"));
}

TEST(OpenCasesTest, TheSmallestDoublesAreRead) {
  EXPECT_EQ(std::numeric_limits<double>::denorm_min(), Number("5e-324"));
  EXPECT_EQ(std::numeric_limits<double>::denorm_min(), Number("3e-324"));
  EXPECT_EQ(-std::numeric_limits<double>::denorm_min(), Number("-4.9406564584124654e-324"));
  EXPECT_EQ(std::numeric_limits<double>::min(), Number("2.2250738585072014e-308"));
  // The largest one below, on which readers have hung.
  EXPECT_EQ(std::nextafter(std::numeric_limits<double>::min(), 0),
            Number("2.2250738585072011e-308"));
}

TEST(OpenCasesTest, ExponentsOfAnyLengthAreTakenForWhatTheySay) {
  for (const char* text :
       {"1e2147483648", "1E+2147483648", "-1e9999999999", "0.001e99999999999999999999",
        "12345678901234567890123e2147483647", "[0e99999999999,1e99999999999]",
        "0.4e0066999999999999999999999999999999999999999999999999999999999999"}) {
    EXPECT_FALSE(Accepts(text)) << text;
  }
  for (const char* text :
       {"1e-2147483648", "1E-99999999999999999999", "123e-009999999999", "0.01e-2147483647",
        "0e99999999999", "0.0E+99999999999", "0e-99999999999", "0.00e2147483648"}) {
    EXPECT_EQ(0, Number(text)) << text;
    EXPECT_FALSE(std::signbit(Number(text))) << text;
    EXPECT_TRUE(std::signbit(Number(std::string("-") + text))) << text;
  }
  EXPECT_EQ(150, Number("1.5e00000000000002"));
  for (const char* text : {"0e99999999999x", "0e99999999999+1", "[0e99999999999", "0e99999999999e",
                           "0e-+99999999999", "0e+-99999999999", "0e--99999999999"}) {
    EXPECT_FALSE(Accepts(text)) << text;
  }
}

TEST(OpenCasesTest, WhatStandsBesideALongExponentIsReadAsItStands) {
  Value value;
  ASSERT_TRUE(
      value.Parse(R"([0e99999999999,"1e99999999999","\\",1e2,"\"1e99999999999\\\"E-99999999999",)"
                  R"({"e99999999999":true,"\\":false},0E9999999999,1e000000000002,)"
                  R"(-12345678901,1.12345678901,1234567890e-1])"));
  EXPECT_EQ(
      value.JsonValueToString(),
      R"([0.0,"1e99999999999","\\",100.0,"\"1e99999999999\\\"E-99999999999",)"
      R"({"e99999999999":true,"\\":false},0.0,100.0,-12345678901,1.12345678901,123456789.0])");
}

TEST(OpenCasesTest, IntegersBeyond64BitsBecomeDoubles) {
  EXPECT_EQ(18446744073709551616.0, Number("18446744073709551616"));
  EXPECT_EQ(-9223372036854775809.0, Number("-9223372036854775809"));
  EXPECT_EQ(123123123123123123123123123123.0, Number("123123123123123123123123123123"));
  EXPECT_EQ(1e100, Number("1" + std::string(100, '0')));
}

TEST(OpenCasesTest, DigitsBeyondWhatADoubleHoldsAreRounded) {
  EXPECT_EQ(0.1, Number("0.1000000000000000055511151231257827021181583404541015625"));
  EXPECT_EQ(1.0, Number("1.0000000000000001"));
  EXPECT_EQ(1.0000000000000002, Number("1.00000000000000011102230246251565404236316680908203126"));
  EXPECT_EQ(1.0, Number("1.00000000000000011102230246251565404236316680908203125"));
  EXPECT_EQ(9007199254740992.0, Number("9007199254740993.0"));
  EXPECT_EQ(9007199254740994.0, Number("9007199254740993.0000000000000000000000000000000001"));
}

TEST(OpenCasesTest, MinusZeroIsADouble) {
  EXPECT_TRUE(std::signbit(Number("-0")));
  EXPECT_TRUE(std::signbit(Number("-0.0")));
  EXPECT_TRUE(std::signbit(Number("-0e1")));
  Value zero = Read("0");
  EXPECT_TRUE(zero.IsInteger());
}

TEST(OpenCasesTest, EscapedSurrogatesWithoutAPartnerAreRefused) {
  for (const char* inside : {"\\uD800", "\\uDC00", "\\uDFFF\\uD800", "\\uDADA", "\\uD888\\u1234",
                             "\\uD800abc", "\\uD800\\n", "\\uD800\\uD800\\uDC00", "\\ud800",
                             "\\uDd1e\\uD834", "abc\\uD834", "\\uD800\\uE000", "\\uD800\\uDBFF"}) {
    EXPECT_FALSE(Accepts("[\"" + std::string(inside) + "\"]")) << inside;
    EXPECT_FALSE(Accepts("{\"" + std::string(inside) + "\":1}")) << inside;
  }
}

TEST(OpenCasesTest, OfOneNameTheLastMemberCountsAtThePlaceOfTheFirst) {
  Value value = Read(R"({"a":1,"b":2,"a":3,"c":4,"b":{"d":[1]},"a":"five","":0,"":1})");
  EXPECT_EQ(R"({"a":"five","b":{"d":[1]},"c":4,"":1})", value.JsonValueToString());
  EXPECT_EQ(4U, value.Size());
}

TEST(OpenCasesTest, NamesAreComparedAfterTheirEscapes) {
  Value value = Read(R"({"key":1,"\u006bey":2,"k\u0065y":3})");
  EXPECT_EQ(R"({"key":3})", value.JsonValueToString());
}

}  // namespace
