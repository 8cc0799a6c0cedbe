// What several threads may do at once. Says little by itself, much under the thread sanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Cases.h"
#include "LumJson.h"

namespace {

using LumJson::Value;
using lumtest::Read;

template <typename Function>
void OnFourThreads(Function function) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back(function, i);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(ThreadTest, OneValueIsReadByManyThreads) {
  Value built;
  for (int i = 0; i < 100; ++i) {
    built["name " + std::to_string(i)].Append(i);
  }
  const Value& value = built;
  const std::string text = value.ToStyledString();
  OnFourThreads([&value, &text](int) {
    for (int i = 0; i < 100; ++i) {
      EXPECT_EQ(i, value["name " + std::to_string(i)].At(0).AsInt64(-1));
      EXPECT_TRUE(value["missing"]["deeper"].IsNull());
      EXPECT_TRUE(value.At(0).IsNull());
    }
    EXPECT_EQ(text, value.ToStyledString());
    EXPECT_EQ(value, Value(value));
  });
}

TEST(ThreadTest, TheNullThatBelongsToNobodyIsEachThreadsOwn) {
  std::atomic<int> ready(0);
  OnFourThreads([&ready](int number) {
    Value value("no object");
    Value& nobody = value["key"];
    nobody = "set by thread " + std::to_string(number);
    // Everybody has written before anybody reads.
    ++ready;
    while (ready != 4) {
      std::this_thread::yield();
    }
    EXPECT_EQ("set by thread " + std::to_string(number), nobody.AsString());
  });
}

TEST(ThreadTest, DistinctDocumentsAreReadAtOnce) {
  OnFourThreads([](int number) {
    for (int i = 0; i < 50; ++i) {
      Value value = Read("{\"a\":[" + std::to_string(number) + ",{\"b\":\"text\"}]}");
      value["c"] = i;
      EXPECT_EQ(number, value["a"].At(0).AsInt64());
    }
  });
}

}  // namespace
