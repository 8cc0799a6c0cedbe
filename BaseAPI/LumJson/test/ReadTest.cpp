// What is read as a document, and what is made of it: the same as a second library makes, that of
// the fuzz target.
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "Cases.h"
#include "LumJson.h"
#include "fuzz/Fuzz.h"

namespace {

using LumJson::Value;
using lumtest::Accepts;
using lumtest::Read;
using lumtest::WrittenElsewhere;
using namespace std::string_view_literals;

// ---- Against a second library ----

// Ends the program when the two do not agree.
void CheckDocument(const std::string& text) {
  static std::string document;
  static const auto tellDocument = [](int) { std::fprintf(stderr, "%s\n", document.c_str()); };
  document = text;
  std::signal(SIGABRT, tellDocument);
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  std::signal(SIGABRT, SIG_DFL);
}

// By itself, and behind values that must neither come to light nor be lost when it is refused.
void CheckValue(const std::string& text) {
  CheckDocument(text);
  CheckDocument("[{\"a\":[1,\"a text that needs memory of its own\"]}, " + text + "]");
}

// Calls `function` with each text of up to `length` of the parts.
template <typename Function>
void ForEachText(const std::vector<std::string_view>& parts, int length, Function function,
                 const std::string& text = "") {
  function(text);
  if (length > 0) {
    for (const std::string_view part : parts) {
      ForEachText(parts, length - 1, function, text + std::string(part));
    }
  }
}

TEST(ReadTest, EveryShortDocument) {
  ForEachText({"[", "]", "{", "}", ",", ":", "\"a\"", "\"a\":1", "1 "}, 4, CheckValue);
}

TEST(ReadTest, EveryShortNumber) {
  ForEachText({"-", "+", "0", "12", ".", "e"}, 5, CheckDocument);
}

TEST(ReadTest, EveryShortText) {
  ForEachText({"\\u", "D83D", "DE00", "0020", "00e", "\\", "\"", "n", "/", "x", "\t", "\x1F"}, 4,
              [](const std::string& text) { CheckDocument("[\"" + text + "\"]"); });
}

TEST(ReadTest, EveryEscape) {
  std::string text;
  for (int code = 0; code <= 0x10FFFF; code += code < 0x3000 ? 1 : 0x3F) {
    const int surrogate = code - 0x10000;
    char escapes[16];
    if (code < 0x10000) {
      std::snprintf(escapes, sizeof escapes, "\\u%04x", code);
    } else {
      std::snprintf(escapes, sizeof escapes, "\\u%04X\\u%04x", 0xD800 | surrogate >> 10,
                    0xDC00 | (surrogate & 0x3FF));
    }
    text += code >= 0xD800 && code <= 0xDFFF ? "" : escapes;
  }
  CheckDocument('"' + text + '"');
  EXPECT_TRUE(Accepts('"' + text + '"'));
  for (const char* letter :
       {"\"", "\\", "/", "b", "f", "n", "r", "t", "a", "'", "0", "x41", "U0041"}) {
    CheckDocument("\"\\" + std::string(letter) + '"');
  }
}

TEST(ReadTest, WhatOtherReadersLetPass) {
  for (const std::string_view text : {"tru"sv,
                                      "fals"sv,
                                      "nul"sv,
                                      "nulll"sv,
                                      "True"sv,
                                      "NULL"sv,
                                      "NaN"sv,
                                      "Infinity"sv,
                                      "-Inf"sv,
                                      "0x1"sv,
                                      "1_000"sv,
                                      "10L"sv,
                                      "abc"sv,
                                      "'a'"sv,
                                      "{a:1}"sv,
                                      "(1)"sv,
                                      "1;2"sv,
                                      "[1] // one"sv,
                                      "[/**/1]"sv,
                                      "{\"a\"=1}"sv,
                                      "<html>"sv,
                                      "\0"sv,
                                      "[\0]"sv,
                                      "[]\0"sv,
                                      "[\"\0\"]"sv,
                                      "[\x0B]"sv,
                                      "[\x0C]"sv,
                                      "[\xC2\xA0]"sv,
                                      "[\xEF\xBC\x91]"sv,
                                      "\xEF\xBB\xBF{}"sv,
                                      "\xFF\xFE[\0]\0"sv}) {
    EXPECT_FALSE(Accepts(std::string(text))) << text;
    CheckValue(std::string(text));
  }
  CheckDocument("null");
  CheckDocument(" \t\r\n[ true , false , null , \"a/*b*/\" ] \t\r\n");
}

// Bytes on both sides of every border that the well-formed sequences have.
TEST(Utf8Test, IllFormedTextIsRefusedAndWrittenWithReplacements) {
  std::size_t count = 0;
  const auto check = [&count](const std::string& bytes) {
    // At changing places in the words of eight bytes that reading and writing go by.
    ++count;
    const std::string text = std::string(count % 19, 'b') + bytes + std::string(count % 7, 'e');
    CheckDocument("[\"" + text + "\"]");
    CheckDocument("{\"\\n" + text + "\":1}");
    EXPECT_EQ(WrittenElsewhere(text), Value(text).ToStyledString());
  };
  for (const char* lead : {"", "\xF0", "\xF4"}) {  // four bytes at most
    ForEachText({"x", "\x7F", "\x80", "\x8F", "\x90", "\x9F", "\xA0", "\xBF", "\xC0", "\xC1",
                 "\xC2", "\xE0", "\xE1", "\xED", "\xF0", "\xF4", "\xF5"},
                3, check, lead);
  }
}

// ---- What RFC 8259 leaves to each reader ----

// To the second library they are what strtod() makes of them.
TEST(OpenCasesTest, NumbersAtTheEdgesOfADouble) {
  for (const std::string& text : std::vector<std::string>{
           // Too large, and just not; a product of digits and power would round.
           "1e400", "1e309", "123.456e78901", "1e+9999", "1E1000", "1" + std::string(400, '0'),
           "1.8e308", "1797693134862315900000000000000e278", "179769313486231581e291",
           "1.7976931348623157e308", "17976931348623157e292", "1.79769313486231580e308",
           // Too small, and just not; the last ones are those on which readers have hung.
           "1e-400", "123.456e-789", "1e-999999999", "2e-324", "0.00001e-320",
           "0." + std::string(400, '0') + "1", "5e-324", "3e-324", "4.9406564584124654e-324",
           "2.2250738585072014e-308", "2.2250738585072011e-308",
           // Integers of more than 64 bits.
           "18446744073709551616", "9223372036854775809", "123123123123123123123123123123",
           "1" + std::string(100, '0'),
           // More digits than count.
           "0.1000000000000000055511151231257827021181583404541015625", "1.0000000000000001",
           "1.00000000000000011102230246251565404236316680908203126",
           "1.00000000000000011102230246251565404236316680908203125", "9007199254740993.0",
           "9007199254740993.0000000000000000000000000000000001"}) {
    CheckDocument("[" + text + ",-" + text + "]");
    CheckDocument("-" + text);
  }
}

double Number(const std::string& text) {
  Value value = Read(text);
  EXPECT_TRUE(value.IsDouble()) << text;
  return value.AsDouble(-1);
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

TEST(OpenCasesTest, MinusZeroIsADouble) {
  EXPECT_TRUE(std::signbit(Number("-0")));
  EXPECT_TRUE(std::signbit(Number("-0.0")));
  EXPECT_TRUE(std::signbit(Number("-0e1")));
  Value zero = Read("0");
  EXPECT_TRUE(zero.IsInteger());
}

TEST(OpenCasesTest, OfOneNameTheLastMemberCountsAtThePlaceOfTheFirst) {
  CheckDocument(R"({"a":1,"b":2,"a":3,"c":4,"b":{"d":[1]},"a":"five","":0,"":1})");
  CheckDocument(R"({"key":1,"\u006bey":2,"k\u0065y":3})");
  CheckDocument(R"({"a":"b","b":1,"c":"b","b":2,"c":"a"})");
  for (int size = 1; size <= 80; size += size < 36 ? 1 : 11) {
    // Around the sizes where objects begin to be searched in other ways.
    for (const char* prefix : {"", "a long name for number "}) {
      std::string once = "{";
      for (int i = 0; i < size; ++i) {
        once += '"' + std::string(prefix) + std::to_string(i) + "\":[\"text of some length\"],";
      }
      const std::string last = '"' + std::string(prefix) + "0\":1}";
      CheckDocument(once + last);
      CheckDocument(once + once.substr(1) + last);
    }
  }
}

}  // namespace
