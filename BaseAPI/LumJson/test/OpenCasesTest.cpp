// What RFC 8259 leaves to each reader, and what this one makes of it.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "Cases.h"
#include "LumJson.h"

namespace {

using LumJson::Value;
using lumtest::Read;

bool Accepts(const std::string& text) {
  Value value;
  const bool accepted = value.Parse(text);
  EXPECT_TRUE(accepted || value.IsNull());
  return accepted;
}

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

TEST(OpenCasesTest, AByteOrderMarkIsRefused) {
  EXPECT_FALSE(Accepts("\xEF\xBB\xBF{}"));
  EXPECT_FALSE(Accepts("\xEF\xBB\xBF"));
  EXPECT_FALSE(Accepts(std::string("\xFE\xFF\0[\0]", 6)));
  EXPECT_FALSE(Accepts(std::string("\xFF\xFE[\0]\0", 6)));
}

TEST(OpenCasesTest, OtherEncodingsAreRefused) {
  EXPECT_FALSE(Accepts(std::string("[\0\"\0\xE9\0\"\0]\0", 10)));
  EXPECT_FALSE(Accepts(std::string("\0[\0\"\0\xE9\0\"\0]", 10)));
  EXPECT_FALSE(Accepts("[\"\xE9\"]"));  // ISO 8859-1
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
