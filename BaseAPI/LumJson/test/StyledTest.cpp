// The exact text of documents.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <utility>

#include "Cases.h"
#include "LumJson.h"

using Other = nlohmann::ordered_json;

std::string lumtest::WrittenElsewhere(const std::string& text) {
  return Other(text).dump(4, ' ', false, Other::error_handler_t::replace) + '\n';
}

namespace {

using LumJson::Value;
using lumtest::Read;
using lumtest::WrittenElsewhere;

TEST(StyledTest, IsWhatTheSecondLibraryWrites) {
  for (const char* text :
       {"null", "true", "false", "-17", "18446744073709551615", R"("text")", R"("")", "[]", "{}",
        R"([[],{},[{}],{"a":[]}])", R"({"a":[1,null,"b\n"],"c":{"d":{}}})",
        R"({"a\"b":1,"\u0000\n":2,"a name of more than fourteen bytes\t":[[{"":3}]]})"}) {
    const Other other = Other::parse(text);
    const Value value = Read(text);
    EXPECT_EQ(other.dump(4) + '\n', value.ToStyledString());
    EXPECT_EQ(other.is_null() || other.is_string() ? value.AsString() : other.dump(),
              value.JsonValueToString());
  }
}

TEST(StyledTest, EachElementAndMemberStandsOnALineOfItsOwn) {
  EXPECT_EQ(R"({
    "topic_name": "status",
    "id": 42,
    "position": {
        "latitude": 39.904211,
        "valid": true
    },
    "errors": [
        17,
        {
            "code": null
        },
        [
            -1
        ]
    ],
    "tags": []
}
)",
            Read(R"({"topic_name":"status","id":42,"position":{"latitude":39.904211,"valid":true},
                       "errors":[17,{"code":null},[-1]],"tags":[]})")
                .ToStyledString());
}

TEST(StyledTest, AnObjectWhoseMembersAreGoneIsEmpty) {
  Value value;
  value["a"] = 1;
  value.Remove("a");
  Value array;
  array.Append(value);
  EXPECT_EQ("[\n    {}\n]\n", array.ToStyledString());
  array.RemoveAt(0);
  EXPECT_EQ("[]\n", array.ToStyledString());
}

// A character that may need care, at every place of texts of every length up to some words.
TEST(StyledTest, EscapesAreFoundAtEveryPlace) {
  for (std::size_t size = 1; size < 40; ++size) {
    for (std::size_t at = 0; at < size; ++at) {
      for (const char special : {'"', '\\', '\x01', '\x1F', ' ', '/', '\x7F'}) {
        std::string text(size, 'x');
        text[at] = special;
        Value array;
        array.Append("fourteen bytes");  // and none that needs care lies before the text
        array.Append(text);
        ASSERT_EQ(Other({"fourteen bytes", text}).dump(), array.JsonValueToString());
      }
    }
  }
}

TEST(StyledTest, OnlyWhatMustIsEscaped) {
  std::string all;
  for (int c = 0; c < 0x80; ++c) {
    all += static_cast<char>(c);
  }
  EXPECT_EQ(WrittenElsewhere(all), Value(all).ToStyledString());
  Value value;
  value["\xFF"] = 3;
  EXPECT_EQ("{\"\xEF\xBF\xBD\":3}", value.JsonValueToString());
}

TEST(StyledTest, WhatIsLargerThanAnyBufferIsWholeAndInOrder) {
  std::string text;
  Value value;
  Other other;
  for (int i = 0; i < 20000; ++i) {
    const std::string name = "member " + std::to_string(i);
    text += name + (i % 7 == 0 ? "\n" : i % 5 == 0 ? "\xC3\xA9" : ",");
    Value item;
    item[name] = "text\t" + name;
    value.Append(std::move(item));
    other.push_back({{name, "text\t" + name}});
  }
  EXPECT_TRUE(other.dump(4) + '\n' == value.ToStyledString());
  EXPECT_TRUE(other.dump() == value.JsonValueToString());
  text += std::string(50000, '\x01');  // six bytes for each
  EXPECT_TRUE(WrittenElsewhere(text) == Value(text).ToStyledString());
}

// Wherever in the writer's buffer they begin.
TEST(StyledTest, LinesAsLongAsTheyGetWithoutLongTextsAreWhole) {
  Value value;
  Value* innermost = &value;
  for (int depth = 1; depth < Value::kMaxDepth; ++depth) {
    innermost->Append(nullptr);
    innermost = &innermost->At(0);
  }
  const std::string indent = '\n' + std::string(4 * Value::kMaxDepth, ' ');
  std::string lines;
  std::mt19937 random(20240607);
  for (int i = 0; i < 4000; ++i) {
    const std::string name = std::to_string(10000000000000 + i);
    const std::string text(random() % 1000 + 1, 'x');
    (*innermost)[text + name] = text;
    (*innermost)[name] = -2.2250738585072014e-308;
    lines += indent + '"' + text + name + "\": \"" + text + "\"," + indent + '"' + name +
             "\": -2.2250738585072014e-308,";
  }
  lines.pop_back();
  const std::string styled = value.ToStyledString();
  EXPECT_TRUE(styled.find(lines + '\n') != std::string::npos);
}

TEST(JsonValueToStringTest, OfAStringItIsItsCharacters) {
  EXPECT_EQ("", Value("").JsonValueToString());
  EXPECT_EQ("a\"b\\\n", Value("a\"b\\\n").JsonValueToString());
  const std::string bytes("\0\xFF", 2);
  EXPECT_EQ(bytes, Value(bytes).JsonValueToString());
}

}  // namespace
