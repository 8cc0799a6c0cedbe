// Numbers keep their value on the way into text and back.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Cases.h"
#include "LumJson.h"

namespace {

using LumJson::Value;
using lumtest::Read;

constexpr std::uint64_t kMaxUint64 = std::numeric_limits<std::uint64_t>::max();

std::uint64_t BitsOf(double number) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &number, sizeof(bits));
  return bits;
}

double FromBits(std::uint64_t bits) {
  double number = 0;
  std::memcpy(&number, &bits, sizeof(number));
  return number;
}

std::string Written(const Value& value) {
  return value.JsonValueToString();
}

TEST(NumberTest, IntegersOfEveryLengthSurvive) {
  constexpr std::uint64_t kAboveInt64 = std::uint64_t{1} << 63;
  std::vector<std::uint64_t> numbers = {kAboveInt64 - 1, kAboveInt64, kMaxUint64};
  std::uint64_t power = 1;
  for (int digits = 1; digits <= 20; ++digits, power *= 10) {
    numbers.insert(numbers.end(), {power - 1, power, power + 1, power * 9 / 2});
  }
  for (const std::uint64_t number : numbers) {
    EXPECT_EQ(std::to_string(number), Written(number));
    EXPECT_EQ(number, Read(std::to_string(number)).AsUint64());
    const auto negative = static_cast<std::int64_t>(0 - number);
    if (number <= kAboveInt64) {
      EXPECT_EQ(std::to_string(negative), Written(negative));
      EXPECT_EQ(negative, Read(std::to_string(negative)).AsInt64());
    }
  }
}

// Writes and reads all of them as one array, and compares them bit by bit.
void ExpectSurvive(const std::vector<double>& numbers) {
  Value array = Value::Array();
  for (const double number : numbers) {
    array.Append(number);
  }
  const Value read = Read(array.ToStyledString());
  ASSERT_EQ(numbers.size(), read.Size());
  std::size_t index = 0;
  for (const Value& value : read.Elements()) {
    ASSERT_TRUE(value.IsDouble()) << Written(value);
    ASSERT_EQ(BitsOf(numbers[index]), BitsOf(value.AsDouble())) << Written(value);
    ++index;
  }
}

TEST(NumberTest, DoublesOfRandomBitsSurvive) {
  std::mt19937_64 random(20240603);
  std::vector<double> numbers;
  while (numbers.size() < 150000) {
    const double number = FromBits(random());
    if (std::isfinite(number)) {
      numbers.push_back(number);
    }
  }
  ExpectSurvive(numbers);
}

TEST(NumberTest, DoublesAtEdgesSurvive) {
  using Limits = std::numeric_limits<double>;
  // Beside the powers of two and of ten, and their neighbours.
  std::vector<double> numbers = {0.0, -0.0, -1.0, 9.99999e-4, 999999999.0, 999999999.999999,
                                 4503599627370496.5,
                                 // The largest and the smallest.
                                 Limits::max(), Limits::lowest(), -Limits::denorm_min()};
  for (int exponent = -1074; exponent <= 1023; ++exponent) {
    const double power = std::ldexp(1.0, exponent);
    numbers.insert(numbers.end(), {power, std::nextafter(power, 0), std::nextafter(power, 1e308)});
  }
  for (int exponent = -323; exponent <= 308; ++exponent) {
    const double power = Read("1e" + std::to_string(exponent)).AsDouble();
    numbers.insert(numbers.end(), {power, std::nextafter(power, 0), std::nextafter(power, 1e308)});
  }
  ExpectSurvive(numbers);
}

// strtod() of the C library rounds correctly; so does the reader, whatever the digits.
TEST(NumberTest, DecimalsAreReadAsTheNearestDouble) {
  std::mt19937_64 random(20240605);
  std::string text = "[0.5";
  std::vector<double> expected = {0.5};
  for (int i = 0; i < 50000; ++i) {
    char number[64];
    const auto digits = random() >> (random() % 60);
    const int exponent = static_cast<int>(random() % 40) - 25;
    switch (i % 4) {
      case 0:
        std::snprintf(number, sizeof(number), "%" PRIu64 "e%d", digits, exponent);
        break;
      case 1:
        std::snprintf(number, sizeof(number), "%" PRIu64 ".%" PRIu64, digits % 1000000,
                      random() % 1000000000);
        break;
      case 2:
        std::snprintf(number, sizeof(number), "-0.%012" PRIu64 "E%d", digits, exponent * 10);
        break;
      default:
        std::snprintf(number, sizeof(number), "%" PRIu64 ".%" PRIu64 "e%+d", digits, random(),
                      exponent);
        break;
    }
    text += ',';
    text += number;
    expected.push_back(std::strtod(number, nullptr));
  }
  const Value read = Read(text + ']');
  ASSERT_EQ(expected.size(), read.Size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    ASSERT_EQ(BitsOf(expected[i]), BitsOf(read.At(i).AsDouble())) << i;
  }
}

TEST(NumberTest, DoublesAreWrittenWithTheFewestDigitsThatStayADouble) {
  const std::pair<double, const char*> cases[] = {
      {0.1, "0.1"},
      {0.3, "0.3"},
      {0.1 + 0.2, "0.30000000000000004"},
      {5e-324, "5e-324"},
      {1.7976931348623157e308, "1.7976931348623157e+308"},
      {2.2250738585072014e-308, "2.2250738585072014e-308"},
      {-123456.789, "-123456.789"},
      {39.904211, "39.904211"},
      {0.001, "0.001"},
      {999999999.999999, "999999999.999999"},
      {1234567890.5, "1234567890.5"},
      {1.0 / 3, "0.3333333333333333"},
      {1e-4, "1e-04"},
      {1e9, "1e+09"},
      {0.0, "0.0"},
      {1.0, "1.0"},
      {-2.0, "-2.0"},
      {100000.0, "100000.0"},
      {123456789.0, "123456789.0"},
      {12345678901.0, "12345678901.0"},
      {0x1p53, "9007199254740992.0"},
      {1e22, "1e+22"},
  };
  for (const auto& [number, text] : cases) {
    EXPECT_EQ(text, Written(number));
    EXPECT_TRUE(Read(text).IsDouble()) << text;
  }
}

TEST(NumberTest, WhatIsNoNumberIsWrittenAsNull) {
  const double infinity = std::numeric_limits<double>::infinity();
  Value array;
  array.Append(infinity);
  array.Append(-infinity);
  array.Append(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ("[null,null,null]", Written(array));
  EXPECT_EQ("null\n", Value(infinity).ToStyledString());
  EXPECT_EQ("null", Written(infinity));
}

}  // namespace
