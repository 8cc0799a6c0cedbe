// Elements: adding, reaching, removing and going through them.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

#include "Cases.h"
#include "LumJson.h"

namespace {

using LumJson::Value;
using lumtest::Read;

TEST(ArrayTest, AppendAddsAtTheEnd) {
  Value value = Read("[1]");
  EXPECT_TRUE(value.Append("two"));
  EXPECT_TRUE(value.Append(Read("{\"three\":[3]}")));
  EXPECT_TRUE(value.Append(nullptr));
  EXPECT_EQ("[1,\"two\",{\"three\":[3]},null]", value.JsonValueToString());
}

TEST(ArrayTest, AnArrayMayBeAppendedToItself) {
  Value value = Read("[1]");
  EXPECT_TRUE(value.Append(value));
  EXPECT_TRUE(value.Append(value));
  EXPECT_EQ("[1,[1],[1,[1]]]", value.JsonValueToString());
}

TEST(ArrayTest, AnElementMayBeAppendedAgain) {
  Value value = Read("[\"a text of more than fourteen bytes\"]");
  for (int i = 0; i < 100; ++i) {
    value.Append(value.At(value.Size() - 1));
  }
  EXPECT_EQ("a text of more than fourteen bytes", value.At(100).AsString());
}

TEST(ArrayTest, ManyElements) {
  constexpr int kElements = 200000;
  Value value;
  for (int i = 0; i < kElements; ++i) {
    ASSERT_TRUE(value.Append(i));
  }
  ASSERT_EQ(std::size_t{kElements}, value.Size());
  EXPECT_EQ(kElements - 1, value.At(kElements - 1).AsInt64());
  EXPECT_EQ(value, Read(value.JsonValueToString()));
}

TEST(ArrayTest, AtReachesElements) {
  Value value = Read("[1,\"two\",[3]]");
  EXPECT_EQ(1, value.At(0).AsInt64());
  EXPECT_EQ(3, value.At(2).At(0).AsInt64());
  value.At(1) = 2;
  EXPECT_EQ("[1,2,[3]]", value.JsonValueToString());
  EXPECT_EQ(2, std::as_const(value).At(1).AsInt64());
}

TEST(ArrayTest, AtBeyondTheEndIsANullThatBelongsToNobody) {
  Value value = Read("[1]");
  EXPECT_TRUE(value.At(1).IsNull());
  value.At(1) = "lost";
  value.At(static_cast<std::size_t>(-1)) = "lost";
  EXPECT_TRUE(value.At(1).IsNull());
  EXPECT_TRUE(std::as_const(value).At(1).IsNull());
  EXPECT_EQ("[1]", value.JsonValueToString());
}

TEST(ArrayTest, RemoveAtKeepsTheOrderOfTheOthers) {
  Value value = Read("[\"a text of more than fourteen bytes\",1,[2],{\"a\":3}]");
  EXPECT_TRUE(value.RemoveAt(2));
  EXPECT_EQ("[\"a text of more than fourteen bytes\",1,{\"a\":3}]", value.JsonValueToString());
  EXPECT_TRUE(value.RemoveAt(0));
  EXPECT_TRUE(value.RemoveAt(1));
  EXPECT_EQ("[1]", value.JsonValueToString());
  EXPECT_FALSE(value.RemoveAt(1));
  EXPECT_TRUE(value.RemoveAt(0));
  EXPECT_FALSE(value.RemoveAt(0));
  EXPECT_TRUE(value.IsArray());
  EXPECT_TRUE(value.Append("again"));
  EXPECT_EQ("[\"again\"]", value.JsonValueToString());
}

TEST(ArrayTest, ElementsComeInOrder) {
  const Value value = Read("[1,\"two\",[3]]");
  std::string seen;
  for (const Value& element : value.Elements()) {
    seen += element.JsonValueToString() + ';';
  }
  EXPECT_EQ("1;two;[3];", seen);
}

TEST(ArrayTest, ElementsCanBeChangedInALoop) {
  Value value = Read("[1,2,3]");
  for (Value& element : value.Elements()) {
    element = element.AsInt64() * 2;
  }
  EXPECT_EQ("[2,4,6]", value.JsonValueToString());
}

TEST(ArrayTest, ElementsServeTheStandardAlgorithms) {
  Value value = Read("[3,1,2]");
  std::sort(value.Elements().begin(), value.Elements().end(),
            [](const Value& a, const Value& b) { return a.AsInt64() < b.AsInt64(); });
  EXPECT_EQ("[1,2,3]", value.JsonValueToString());
}

}  // namespace
