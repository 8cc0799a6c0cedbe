// The exact text of documents.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "Cases.h"
#include "LumJson.h"

namespace {

using LumJson::Value;
using lumtest::Read;

std::string Styled(const std::string& text) {
  return Read(text).ToStyledString();
}

TEST(StyledTest, ScalarsStandOnOneLine) {
  EXPECT_EQ("null\n", Value().ToStyledString());
  EXPECT_EQ("true\n", Value(true).ToStyledString());
  EXPECT_EQ("false\n", Value(false).ToStyledString());
  EXPECT_EQ("-17\n", Value(-17).ToStyledString());
  EXPECT_EQ("2.5\n", Value(2.5).ToStyledString());
  EXPECT_EQ("\"text\"\n", Value("text").ToStyledString());
  EXPECT_EQ("\"\"\n", Value("").ToStyledString());
}

TEST(StyledTest, EmptyContainersStandOnOneLine) {
  EXPECT_EQ("[]\n", Value::Array().ToStyledString());
  EXPECT_EQ("{}\n", Value::Object().ToStyledString());
  EXPECT_EQ("[\n    [],\n    {}\n]\n", Styled("[[],{}]"));
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
            Styled(R"({"topic_name":"status","id":42,"position":{"latitude":39.904211,"valid":true},
                       "errors":[17,{"code":null},[-1]],"tags":[]})"));
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

TEST(StyledTest, OnlyWhatMustIsEscaped) {
  std::string all;
  for (int c = 0; c < 0x80; ++c) {
    all += static_cast<char>(c);
  }
  EXPECT_EQ(
      "\"\\u0000\\u0001\\u0002\\u0003\\u0004\\u0005\\u0006\\u0007\\b\\t\\n\\u000b\\f\\r\\u000e\\u00"
      "0f"
      "\\u0010\\u0011\\u0012\\u0013\\u0014\\u0015\\u0016\\u0017\\u0018\\u0019\\u001a\\u001b\\u001c"
      "\\u001d\\u001e\\u001f !\\\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\\\]^_`"
      "abcdefghijklmnopqrstuvwxyz{|}~\x7F\"\n",
      Value(all).ToStyledString());
}

TEST(StyledTest, NamesAreEscapedLikeStrings) {
  Value value;
  value["a\"b"] = 1;
  value[std::string("\0\n", 2)] = 2;
  value["\xFF"] = 3;
  value["a name of more than fourteen bytes\t"] = 4;
  EXPECT_EQ(
      "{\n    \"a\\\"b\": 1,\n    \"\\u0000\\n\": 2,\n    \"\xEF\xBF\xBD\": 3,\n"
      "    \"a name of more than fourteen bytes\\t\": 4\n}\n",
      value.ToStyledString());
}

// A character that needs care, at every place of texts of every length up to some words.
TEST(StyledTest, EscapesAreFoundAtEveryPlace) {
  for (std::size_t size = 1; size < 40; ++size) {
    for (std::size_t at = 0; at < size; ++at) {
      for (const char special : {'"', '\\', '\x01', '\x1F'}) {
        std::string text(size, 'x');
        text[at] = special;
        std::string expected(size, 'x');
        expected.replace(at, 1,
                         special == '"'      ? "\\\""
                         : special == '\\'   ? "\\\\"
                         : special == '\x01' ? "\\u0001"
                                             : "\\u001f");
        Value array;
        array.Append("fourteen bytes");  // and none that needs care lies before the text
        array.Append(text);
        ASSERT_EQ("[\"fourteen bytes\",\"" + expected + "\"]", array.JsonValueToString());
      }
    }
  }
}

TEST(StyledTest, TextsLargerThanAnyBufferAreWholeAndInOrder) {
  std::string text;
  std::string written;
  for (int i = 0; i < 60000; ++i) {
    text += std::to_string(i) + (i % 7 == 0 ? "\n" : i % 5 == 0 ? "\xC3\xA9" : ",");
    written += std::to_string(i) + (i % 7 == 0 ? "\\n" : i % 5 == 0 ? "\xC3\xA9" : ",");
  }
  EXPECT_TRUE('"' + written + "\"\n" == Value(text).ToStyledString());
  // Escapes only: six bytes for each.
  EXPECT_EQ(6U * 50000 + 3, Value(std::string(50000, '\x01')).ToStyledString().size());
}

TEST(StyledTest, DocumentsLargerThanAnyBufferAreWholeAndInOrder) {
  Value value;
  std::string styled = "{";
  std::string compact = "{";
  for (int i = 0; i < 20000; ++i) {
    const std::string name = "member " + std::to_string(i);
    value[name].Append(i);
    value[name].Append("text\t" + std::to_string(i));
    const std::string comma = i == 0 ? "" : ",";
    styled += comma + "\n    \"" + name + "\": [\n        " + std::to_string(i) +
              ",\n        \"text\\t" + std::to_string(i) + "\"\n    ]";
    compact +=
        comma + '"' + name + "\":[" + std::to_string(i) + ",\"text\\t" + std::to_string(i) + "\"]";
  }
  EXPECT_TRUE(styled + "\n}\n" == value.ToStyledString());
  EXPECT_TRUE(compact + "}" == value.JsonValueToString());
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

TEST(JsonValueToStringTest, OfAnythingElseItIsTheDocumentWithoutBlanks) {
  EXPECT_EQ("true", Value(true).JsonValueToString());
  EXPECT_EQ("17", Value(17).JsonValueToString());
  EXPECT_EQ("1.0", Value(1.0).JsonValueToString());
  EXPECT_EQ("[]", Value::Array().JsonValueToString());
  EXPECT_EQ("{}", Value::Object().JsonValueToString());
  Value value = Read("{\"a\" : [ 1, null, \"b\\n\" ], \"c\" : { \"d\" : { } } }");
  EXPECT_EQ("{\"a\":[1,null,\"b\\n\"],\"c\":{\"d\":{}}}", value.JsonValueToString());
}

}  // namespace
