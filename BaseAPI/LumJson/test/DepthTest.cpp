// Nesting: read to a limit, built and handled to any depth, without much stack in either case.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>

#include "Cases.h"
#include "LumJson.h"

namespace {

using LumJson::Value;
using lumtest::Accepts;
using lumtest::Read;

constexpr int kDeep = 100000;

std::string NestedArrays(int depth) {
  return std::string(static_cast<std::size_t>(depth), '[') +
         std::string(static_cast<std::size_t>(depth), ']');
}

std::string NestedObjects(int depth) {
  std::string text;
  for (int i = 1; i < depth; ++i) {
    text += "{\"a\":";
  }
  return text + "{}" + std::string(static_cast<std::size_t>(depth - 1), '}');
}

TEST(DepthTest, TheLimitCountsArraysAndObjectsAlike) {
  std::string open;
  std::string close;
  for (int i = 0; i < Value::kMaxDepth / 2; ++i) {
    open += "[{\"a\":";
    close = "}]" + close;
  }
  EXPECT_TRUE(Accepts(open + "1" + close));
  EXPECT_FALSE(Accepts(open + "[]" + close));
}

TEST(DepthTest, WhatIsReadAtTheLimitIsWrittenBack) {
  const std::string text = NestedObjects(Value::kMaxDepth);
  Value value = Read(text);
  EXPECT_EQ(text, value.JsonValueToString());
  Value again = Read(value.ToStyledString());
  EXPECT_EQ(value, again);
}

// An array or object in an array or object in ... , of `kDeep` levels.
Value BuildDeep() {
  Value value("innermost");
  for (int i = 0; i < kDeep; ++i) {
    Value outer;
    if (i % 2 == 0) {
      outer.Append(std::move(value));
    } else {
      outer["a"] = std::move(value);
    }
    value = std::move(outer);
  }
  return value;
}

TEST(DepthTest, DeepTreesAreBuiltFromTheOutsideToo) {
  Value value;
  Value* innermost = &value;
  for (int i = 0; i < kDeep; ++i) {
    innermost = &(*innermost)["a"];
  }
  *innermost = 1;
  value = Value();
  EXPECT_TRUE(value.IsNull());
}

TEST(DepthTest, DeepTreesAreCopiedAndCompared) {
  const Value value = BuildDeep();
  Value copy = value;
  EXPECT_TRUE(copy == value);
  Value* innermost = &copy;
  while (!innermost->IsString()) {
    innermost = innermost->IsArray() ? &innermost->At(0) : innermost->Find("a");
  }
  *innermost = "changed";
  EXPECT_FALSE(copy == value);
}

TEST(DepthTest, DeepTreesAreWrittenWithoutBlanks) {
  const std::string text = BuildDeep().JsonValueToString();
  EXPECT_EQ(std::size_t{kDeep} / 2 * (2 + 6) + 11, text.size());
  EXPECT_EQ("{\"a\":[{\"a\":[", text.substr(0, 12));
  EXPECT_EQ("]}]}", text.substr(text.size() - 4));
  EXPECT_NE(std::string::npos, text.find("[\"innermost\"]"));
}

TEST(DepthTest, BeyondTheLimitStyledTextStandsOnOneLine) {
  // Two lines a level: one that opens, one that closes; and the line of what is deeper.
  const std::string text = BuildDeep().ToStyledString();
  const auto lines = static_cast<int>(std::count(text.begin(), text.end(), '\n'));
  EXPECT_EQ(2 * Value::kMaxDepth + 1, lines);
  // It is the same document.
  std::string packed;
  for (const char c : text) {
    if (c != ' ' && c != '\n') {
      packed += c;
    }
  }
  EXPECT_TRUE(packed == BuildDeep().JsonValueToString());
}

TEST(DepthTest, AtTheLimitEveryLevelHasItsLines) {
  Value value;
  ASSERT_TRUE(
      value.Parse(NestedArrays(Value::kMaxDepth - 1).insert(Value::kMaxDepth - 1, "[1,2]")));
  const std::string text = value.ToStyledString();
  EXPECT_EQ(2 * Value::kMaxDepth + 2, std::count(text.begin(), text.end(), '\n'));
  const std::string indent(4 * Value::kMaxDepth, ' ');
  EXPECT_NE(std::string::npos, text.find('\n' + indent + "1,\n" + indent + "2\n"));
}

// A thread has only the stack that it was given.
void* Call(void* function) {
  (*static_cast<std::function<void()>*>(function))();
  return nullptr;
}

void CallOnStackOf(std::size_t bytes, std::function<void()> function) {
  pthread_attr_t attributes;
  ASSERT_EQ(0, pthread_attr_init(&attributes));
  ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, bytes));
  pthread_t thread;
  ASSERT_EQ(0, pthread_create(&thread, &attributes, Call, &function));
  ASSERT_EQ(0, pthread_join(thread, nullptr));
  ASSERT_EQ(0, pthread_attr_destroy(&attributes));
}

// Instrumented code needs several times the stack.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__OPTIMIZE__)
constexpr std::size_t kSmallStack = std::size_t{2} << 20;
#else
constexpr std::size_t kSmallStack = std::size_t{256} << 10;
#endif

TEST(DepthTest, TheDeepestDocumentIsReadOnASmallStack) {
  CallOnStackOf(kSmallStack, [] {
    EXPECT_TRUE(Accepts(NestedArrays(Value::kMaxDepth)));
    EXPECT_TRUE(Accepts(NestedObjects(Value::kMaxDepth)));
    for (const int depth : {Value::kMaxDepth + 1, kDeep}) {
      EXPECT_FALSE(Accepts(NestedArrays(depth)));
      EXPECT_FALSE(Accepts(NestedObjects(depth)));
    }
  });
}

TEST(DepthTest, DeepTreesAreHandledOnASmallStack) {
  CallOnStackOf(std::size_t{256} << 10, [] {
    const Value value = BuildDeep();
    const Value copy = value;
    EXPECT_TRUE(value == copy);
    EXPECT_FALSE(copy.ToStyledString().empty());
  });
}

}  // namespace
