// Making values, asking for their kind, and taking them out again.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Cases.h"
#include "LumJson.h"

namespace {

using LumJson::Value;
using lumtest::Read;

constexpr std::int64_t kMinInt64 = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMaxInt64 = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t kMaxUint64 = std::numeric_limits<std::uint64_t>::max();

static_assert(sizeof(Value) == 16);
static_assert(std::is_nothrow_default_constructible_v<Value>);
static_assert(std::is_nothrow_move_constructible_v<Value>);
static_assert(std::is_nothrow_move_assignable_v<Value>);
static_assert(std::is_nothrow_destructible_v<Value>);
// No pointer but to characters becomes a value, least of all a boolean.
static_assert(!std::is_constructible_v<Value, int*>);
static_assert(!std::is_constructible_v<Value, const void*>);
static_assert(!std::is_constructible_v<Value, Value*>);

// One letter for each kind that the value says it is.
std::string Kinds(const Value& value) {
  std::string kinds;
  kinds += value.IsNull() ? "z" : "";
  kinds += value.IsBool() ? "b" : "";
  kinds += value.IsNumber() ? "n" : "";
  kinds += value.IsInteger() ? "i" : "";
  kinds += value.IsUnsigned() ? "u" : "";
  kinds += value.IsDouble() ? "d" : "";
  kinds += value.IsString() ? "s" : "";
  kinds += value.IsArray() ? "a" : "";
  kinds += value.IsObject() ? "o" : "";
  return kinds;
}

TEST(ValueTest, KindsOfWhatIsMadeByHand) {
  EXPECT_EQ("z", Kinds(Value()));
  EXPECT_EQ("z", Kinds(Value(nullptr)));
  EXPECT_EQ("b", Kinds(Value(true)));
  EXPECT_EQ("b", Kinds(Value(false)));
  EXPECT_EQ("niu", Kinds(Value(0)));
  EXPECT_EQ("niu", Kinds(Value(1)));
  EXPECT_EQ("ni", Kinds(Value(-1)));
  EXPECT_EQ("niu", Kinds(Value(0L)));
  EXPECT_EQ("niu", Kinds(Value(0LL)));
  EXPECT_EQ("niu", Kinds(Value(0U)));
  EXPECT_EQ("niu", Kinds(Value(0UL)));
  EXPECT_EQ("niu", Kinds(Value(0ULL)));
  EXPECT_EQ("niu", Kinds(Value(kMaxInt64)));
  EXPECT_EQ("nu", Kinds(Value(kMaxUint64)));
  EXPECT_EQ("nd", Kinds(Value(0.0)));
  EXPECT_EQ("nd", Kinds(Value(1.5F)));
  EXPECT_EQ("ni", Kinds(Value(static_cast<short>(-5))));
  EXPECT_EQ("niu", Kinds(Value(static_cast<unsigned char>(200))));
  EXPECT_EQ("s", Kinds(Value("")));
  EXPECT_EQ("s", Kinds(Value("text")));
  EXPECT_EQ("s", Kinds(Value(std::string("a text of more than fourteen bytes"))));
  EXPECT_EQ("a", Kinds(Value::Array()));
  EXPECT_EQ("o", Kinds(Value::Object()));
}

TEST(ValueTest, KindsOfWhatIsRead) {
  const std::pair<const char*, const char*> cases[] = {
      {"null", "z"},
      {"true", "b"},
      {"0", "niu"},
      {"-1", "ni"},
      {"9223372036854775807", "niu"},
      {"9223372036854775808", "nu"},
      {"18446744073709551615", "nu"},
      {"18446744073709551616", "nd"},
      {"-9223372036854775808", "ni"},
      {"-9223372036854775809", "nd"},
      {"1.0", "nd"},
      {"1e0", "nd"},
      {"\"\"", "s"},
      {"\"a text of more than fourteen bytes\"", "s"},
      {"[]", "a"},
      {"[1]", "a"},
      {"{}", "o"},
      {"{\"a\":1}", "o"},
  };
  for (const auto& [text, kinds] : cases) {
    Value value = Read(text);
    EXPECT_EQ(kinds, Kinds(value)) << text;
  }
}

TEST(ValueTest, ANullPointerToCharactersMakesNull) {
  const char* const none = nullptr;
  EXPECT_TRUE(Value(none).IsNull());
  EXPECT_TRUE(Value(none, 0).IsNull());
  EXPECT_TRUE(Value(none, 5).IsNull());
}

TEST(ValueTest, StringsKeepAllBytes) {
  const std::string bytes("a\0b\xFF\n", 5);
  EXPECT_EQ(bytes, Value(bytes).AsString());
  EXPECT_EQ(bytes, Value(bytes.data(), bytes.size()).AsString());
  EXPECT_EQ("a", Value(bytes.c_str()).AsString());
}

TEST(ValueTest, StringsOfEveryLengthSurvive) {
  std::string text;
  for (std::size_t size = 0; size < 100; ++size) {
    const Value value(text);
    EXPECT_EQ(text, value.AsString());
    EXPECT_EQ(size, value.StringSize());
    EXPECT_EQ(text, std::string(value.StringData(), value.StringSize()));
    // Read too, at the end of a document and well before it.
    Value read = Read('"' + text + '"');
    EXPECT_EQ(value, read);
    ASSERT_TRUE(read.Parse("[\"" + text + "\", \"and something behind it\"]"));
    EXPECT_EQ(value, read.At(0));
    text += static_cast<char>('a' + size % 26);
  }
}

TEST(ValueTest, WhatBelongsToOtherKindsFindsAndChangesNothing) {
  const std::string text = "a text of more than fourteen bytes";
  for (const Value& sample :
       {Value(), Value(true), Value(1), Value(-1.5), Value(kMaxUint64), Value(""), Value(text),
        Value::Array(), Read("[1,{\"a\":2}]"), Value::Object(), Read("{\"0\":1}")}) {
    SCOPED_TRACE(sample.ToStyledString());
    Value value = sample;
    const Value& constant = value;
    EXPECT_EQ(nullptr, value.Find("a"));
    EXPECT_EQ(nullptr, constant.Find("a"));
    EXPECT_FALSE(value.Has("a"));
    EXPECT_TRUE(constant["a"]["b"].IsNull());
    EXPECT_FALSE(value.Remove("a"));
    EXPECT_TRUE(value.At(7).IsNull());
    value.At(7) = "lost";
    EXPECT_TRUE(constant.At(7).IsNull());
    EXPECT_FALSE(value.RemoveAt(7));
    if (!sample.IsObject()) {
      EXPECT_TRUE(value.Members().begin() == value.Members().end());
      EXPECT_TRUE(constant.Members().begin() == constant.Members().end());
    }
    if (!sample.IsObject() && !sample.IsNull()) {
      value.AddJsonValue("a", "lost");
      value["a"]["deeper"] = "lost";
      EXPECT_TRUE(value["a"].IsNull());
    }
    if (!sample.IsArray()) {
      EXPECT_TRUE(value.At(0).IsNull());
      value.At(0) = "lost";
      EXPECT_FALSE(value.RemoveAt(0));
    }
    if (!sample.IsArray() || sample.Empty()) {
      EXPECT_EQ(value.Elements().begin(), value.Elements().end());
      EXPECT_EQ(constant.Elements().begin(), constant.Elements().end());
    }
    if (!sample.IsArray() && !sample.IsNull()) {
      EXPECT_FALSE(value.Append(text));
    }
    if (!sample.IsArray() && !sample.IsObject()) {
      EXPECT_EQ(0U, value.Size());
      EXPECT_TRUE(value.Empty());
    }
    if (!sample.IsString()) {
      EXPECT_EQ(nullptr, value.StringData());
      EXPECT_EQ(0U, value.StringSize());
      EXPECT_EQ("", value.AsString());
      EXPECT_EQ("other", value.AsString("other"));
    }
    if (!sample.IsBool()) {
      EXPECT_FALSE(value.AsBool());
      EXPECT_TRUE(value.AsBool(true));
    }
    if (!sample.IsNumber()) {
      EXPECT_EQ(0.0, value.AsDouble());
      EXPECT_EQ(1.5, value.AsDouble(1.5));
    }
    EXPECT_EQ(sample, value);
  }
}

TEST(ValueTest, AsBoolAndAsStringTakeTheirKind) {
  EXPECT_TRUE(Value(true).AsBool());
  EXPECT_FALSE(Value(false).AsBool(true));
  EXPECT_EQ("text", Value("text").AsString());
  EXPECT_EQ("", Value("").AsString("other"));
}

TEST(ValueTest, AsInt64AndAsUint64TakeWhatFits) {
  const double infinity = std::numeric_limits<double>::infinity();
  const struct {
    Value value;
    std::optional<std::int64_t> integer;
    std::optional<std::uint64_t> unsignedInteger;
  } kCases[] = {
      {0, 0, 0},
      {3.0, 3, 3},
      {-0.0, 0, 0},
      {-1, -1, {}},
      {-1.0, -1, {}},
      {kMinInt64, kMinInt64, {}},
      {-0x1p63, kMinInt64, {}},
      {0x1p53, 9007199254740992, 9007199254740992},
      {0x1.fffffffffffffp62, 9223372036854774784, 9223372036854774784},
      {kMaxInt64, kMaxInt64, kMaxInt64},
      {static_cast<std::uint64_t>(kMaxInt64), kMaxInt64, kMaxInt64},
      {std::uint64_t{1} << 63, {}, std::uint64_t{1} << 63},
      {0x1p63, {}, std::uint64_t{1} << 63},
      {0x1.fffffffffffffp63, {}, 18446744073709549568U},
      {kMaxUint64, {}, kMaxUint64},
      {0x1p64, {}, {}},
      {-0x1.0000000000001p63, {}, {}},
      {3.5, {}, {}},
      {0.5, {}, {}},
      {infinity, {}, {}},
      {-infinity, {}, {}},
      {std::nan(""), {}, {}},
      {Value(), {}, {}},
      {true, {}, {}},
      {"1", {}, {}},
      {Value::Array(), {}, {}},
      {Value::Object(), {}, {}},
  };
  for (const auto& [value, integer, unsignedInteger] : kCases) {
    EXPECT_EQ(integer.value_or(0), value.AsInt64()) << value;
    EXPECT_EQ(integer.value_or(-7), value.AsInt64(-7)) << value;
    EXPECT_EQ(unsignedInteger.value_or(0), value.AsUint64()) << value;
    EXPECT_EQ(unsignedInteger.value_or(7), value.AsUint64(7)) << value;
  }
}

TEST(ValueTest, AsDoubleTakesAnyNumberAndRounds) {
  EXPECT_EQ(2.5, Value(2.5).AsDouble());
  EXPECT_EQ(-3.0, Value(-3).AsDouble());
  EXPECT_EQ(0x1p64, Value(kMaxUint64).AsDouble());
  EXPECT_EQ(0x1p63, Value(kMaxInt64).AsDouble());
  EXPECT_TRUE(std::isnan(Value(std::nan("")).AsDouble()));
}

Value Sample() {
  return Read(
      R"({"a":[1,2.5,"short","a text of more than fourteen bytes",{"b":{"c":[[],{}]}}],"d":null})");
}

TEST(ValueTest, CopiesAreDeep) {
  const Value original = Sample();
  const std::string text = original.ToStyledString();
  Value copy = original;
  EXPECT_EQ(original, copy);
  copy["a"].At(4)["b"]["c"].Append(1);
  copy["a"].At(3) = "changed";
  copy["new"] = 1;
  EXPECT_EQ(text, original.ToStyledString());
  EXPECT_NE(original, copy);
}

TEST(ValueTest, MovesLeaveNullBehind) {
  Value from = Sample();
  Value to(std::move(from));
  EXPECT_TRUE(from.IsNull());  // NOLINT(bugprone-use-after-move): that is the point
  EXPECT_EQ(Sample(), to);
  Value assigned("a text of more than fourteen bytes");
  assigned = std::move(to);
  EXPECT_TRUE(to.IsNull());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(Sample(), assigned);
}

TEST(ValueTest, AValueMayBeAssignedToItself) {
  Value value = Sample();
  Value& self = value;
  value = self;
  EXPECT_EQ(Sample(), value);
  value = std::move(self);
  EXPECT_EQ(Sample(), value);
}

TEST(ValueTest, APartMayBeAssignedToItsWhole) {
  Value value = Sample();
  value = value["a"];
  EXPECT_TRUE(value.IsArray());
  value = std::move(value.At(4)["b"]);
  EXPECT_EQ("{\"c\":[[],{}]}", value.JsonValueToString());
}

TEST(ValueTest, AWholeMayBeAssignedToItsPart) {
  Value value;
  value["a"] = 1;
  value["b"] = value;
  EXPECT_EQ("{\"a\":1,\"b\":{\"a\":1,\"b\":null}}", value.JsonValueToString());
  value["b"]["b"] = value["b"];
  EXPECT_EQ("{\"a\":1,\"b\":{\"a\":1,\"b\":{\"a\":1,\"b\":null}}}", value.JsonValueToString());
}

TEST(ValueTest, ParseReplacesWhatWasThere) {
  Value value = Sample();
  EXPECT_TRUE(value.Parse("[1]"));
  EXPECT_EQ("[1]", value.JsonValueToString());
  EXPECT_FALSE(value.Parse("[1"));
  EXPECT_TRUE(value.IsNull());
  EXPECT_TRUE(value.Parse("{}"));
  EXPECT_TRUE(value.IsObject());
}

// Values of one row are equal, those of different rows are not.
TEST(EqualityTest, EqualAreValuesOfOneKindWithEqualContents) {
  Value shortened = Read("[1,2]");
  EXPECT_TRUE(shortened.RemoveAt(1));
  const std::vector<std::vector<Value>> rows = {
      {Value(), Read("null")},
      {true},
      {false},
      {"text", Read("\"text\"")},
      {"Text"},
      {"text "},
      {""},
      {"a"},
      {"beginning 1"},
      {"beginning 2"},
      {std::string(20, 'a'), std::string(20, 'a')},
      {std::string(21, 'a')},
      {std::string("a\0b", 3)},
      {std::string("a\0c", 3)},
      // Numbers by what they stand for.
      {0, 0U, 0.0, -0.0},
      {1, 1U, 1.0},
      {-1, -1.0},
      {0.5},
      {1.5},
      {97.0},
      {std::uint64_t{1} << 63, 0x1p63},  // which has the bits of -0.0
      {0x1.8p63},
      // Doubles that integers would be rounded to are not equal to them.
      {9007199254740993},
      {9007199254740992.0},
      {kMaxInt64},
      {kMaxUint64},
      {0x1p64},
      // Arrays element by element.
      {Value::Array(), Read("[]")},
      {Read("[1,[2,{\"a\":3}]]"), Read("[1.0,[2,{\"a\":3}]]")},
      {Read("[1,2]")},
      {Read("[2,1]")},
      {Read("[1]"), shortened},
      {Read("[1,null]")},
      {Read("[null]")},
      {Read("[[[1]]]")},
      {Read("[[[2]]]")},
      {Read("[[]]")},
      {Read("[{}]")},
      {Read("[\"a\",1]")},
      // Objects by name in any order.
      {Value::Object(), Read("{}")},
      {Read("{\"a\":1,\"b\":[2],\"c\":{}}"), Read("{\"c\":{},\"b\":[2],\"a\":1}")},
      {Read("{\"a\":1,\"b\":2}")},
      {Read("{\"a\":2,\"b\":1}")},
      {Read("{\"a\":1}")},
      {Read("{\"b\":1}")},
      {Read("{\"a\":null}")},
      {Read("{\"a\":{\"b\":1}}")},
      {Read("{\"a\":{\"b\":2}}")},
  };
  for (const auto& row : rows) {
    for (const auto& other : rows) {
      for (const Value& a : row) {
        for (const Value& b : other) {
          EXPECT_EQ(&row == &other, a == b) << a << b;
          EXPECT_EQ(&row != &other, a != b) << a << b;
        }
      }
    }
  }
  EXPECT_NE(Value(std::nan("")), Value(std::nan("")));
  EXPECT_NE(Value(1), Value(std::nan("")));
}

TEST(EqualityTest, LargeObjectsInAnyOrder) {
  Value forward;
  Value backward;
  for (int i = 0; i < 5000; ++i) {
    forward["name " + std::to_string(i)] = i;
    backward["name " + std::to_string(4999 - i)] = 4999 - i;
  }
  EXPECT_EQ(forward, backward);
  backward["name 17"] = 18;
  EXPECT_NE(forward, backward);
}

TEST(EqualityTest, LiteralsCompareWithValues) {
  EXPECT_TRUE(Value("text") == "text");
  EXPECT_TRUE("text" == Value("text"));
  EXPECT_TRUE(Value(1) == 1);
  EXPECT_TRUE(Value(true) != false);
}

}  // namespace
