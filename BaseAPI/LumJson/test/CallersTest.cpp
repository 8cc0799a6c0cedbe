// Callers in C++11, and callers on several threads.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "Cases.h"
#include "LumJson.h"
#include "support/Threads.h"

std::string UseAllFromCpp11();

namespace {

using LumJson::Value;
using lumtest::Read;

TEST(HeaderTest, ServesCallersInCpp11) {
  EXPECT_EQ(
      "boolbool intint unsignedunsigned doubledouble texttext bytesbytes nullnull arrayarray "
      "objectobject addedadded -1",
      UseAllFromCpp11());
}

// What several threads may do at once says little by itself, much under the thread sanitizer.
constexpr int kThreads = 4;

TEST(ThreadTest, OneValueIsReadByManyThreads) {
  Value built;
  for (int i = 0; i < 100; ++i) {
    built["name " + std::to_string(i)].Append(i);
  }
  const Value& value = built;
  const std::string text = value.ToStyledString();
  lumtest::OnThreads(kThreads, [&value, &text](int) {
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
  lumtest::OnThreads(kThreads, [&ready](int number) {
    Value value("no object");
    Value& nobody = value["key"];
    nobody = "set by thread " + std::to_string(number);
    // Everybody has written before anybody reads.
    ++ready;
    while (ready != kThreads) {
      std::this_thread::yield();
    }
    EXPECT_EQ("set by thread " + std::to_string(number), nobody.AsString());
  });
}

TEST(ThreadTest, DistinctDocumentsAreReadAtOnce) {
  lumtest::OnThreads(kThreads, [](int number) {
    for (int i = 0; i < 50; ++i) {
      Value value = Read("{\"a\":[" + std::to_string(number) + ",{\"b\":\"text\"}]}");
      value["c"] = i;
      EXPECT_EQ(number, value["a"].At(0).AsInt64());
    }
  });
}

}  // namespace
