// Memory: how often it is asked for, and what holds when there is none left.
//
// This program replaces operator new, to count and to fail: each operation is run as often as it
// allocates, and another allocation fails in each run. What is lost is told by the leak checker.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>
#include <utility>

#include "Cases.h"
#include "LumJson.h"

namespace {

long allocations = 0;  // since the last reset
long failing = 0;      // the allocation that fails, counted from 1; 0 for none
long living = 0;       // blocks not given back

void* Allocate(std::size_t size) {
  if (++allocations == failing) {
    throw std::bad_alloc();
  }
  void* const memory = std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  ++living;
  return memory;
}

void Free(void* memory) {
  if (memory != nullptr) {
    --living;
    std::free(memory);
  }
}

}  // namespace

void* operator new(std::size_t size) {
  return Allocate(size);
}
void* operator new[](std::size_t size) {
  return Allocate(size);
}
void operator delete(void* memory) noexcept {
  Free(memory);
}
void operator delete[](void* memory) noexcept {
  Free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  Free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  Free(memory);
}

namespace {

using LumJson::Value;

template <typename Function>
long AllocationsOf(Function function) {
  allocations = 0;
  function();
  return allocations;
}

// Runs `operation` again and again, its first allocation failing, then its second, until one run
// needs no more. `check` sees the state after each failure.
template <typename Setup, typename Operation, typename Check>
void FailEachAllocation(Setup setup, Operation operation, Check check) {
  bool failed = true;
  long runs = 0;
  while (failed) {
    const long before = living;
    {
      auto state = setup();
      failed = false;
      allocations = 0;
      failing = ++runs;
      try {
        operation(state);
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      failing = 0;
      if (failed) {
        check(state);
      }
    }
    ASSERT_EQ(before, living) << "allocation " << runs << " of the operation failed";
  }
  EXPECT_GT(runs, 1) << "nothing was allocated";
}

const char* const kDocument =
    R"({"id":7,"name of more than fourteen bytes":"a text of more than fourteen bytes",
        "list":[1,2.5,null,true,"short",["nested",{"a":{"b":[]}}]],"\u00e9scaped \n text of some length":
        "a text \t with an escape","id":8,"list":["again, more than fourteen bytes"]})";

// More members than are searched one by one, with a duplicate.
std::string LargeDocument() {
  std::string text = "{";
  for (int i = 0; i < 60; ++i) {
    text += "\"a name for member " + std::to_string(i % 59) + "\":[\"text of some length\"],";
  }
  return text + "\"last\":{}}";
}

TEST(MemoryTest, ParseLeavesNullWhenThereIsNoMemory) {
  for (const std::string& text :
       {std::string(kDocument), LargeDocument(),
        std::string("[0e-99999999999,\"a text of more than fourteen bytes\"]")}) {
    FailEachAllocation([] { return Value("a text of more than fourteen bytes"); },
                       [&text](Value& value) { EXPECT_TRUE(value.Parse(text)); },
                       [](const Value& value) { EXPECT_TRUE(value.IsNull()); });
  }
}

TEST(MemoryTest, ParseOfManyValuesLeavesNullWhenThereIsNoMemory) {
  std::string text = "[\"a text of more than fourteen bytes\"";
  for (int i = 0; i < 1000; ++i) {
    text += ",1";
  }
  text += ']';
  FailEachAllocation([] { return Value(1); },
                     [&text](Value& value) { EXPECT_TRUE(value.Parse(text)); },
                     [](const Value& value) { EXPECT_TRUE(value.IsNull()); });
}

Value Sample() {
  Value value;
  EXPECT_TRUE(value.Parse(kDocument));
  EXPECT_TRUE(value["large"].Parse(LargeDocument()));
  return value;
}

struct Two {
  Value first;
  Value second;
};

TEST(MemoryTest, AFailedCopyChangesNothing) {
  FailEachAllocation(
      [] {
        return Two{Sample(), Value("a text of more than fourteen bytes")};
      },
      [](Two& two) { two.second = two.first; },
      [](const Two& two) {
        EXPECT_EQ(Sample(), two.first);
        EXPECT_EQ("a text of more than fourteen bytes", two.second.AsString());
      });
}

TEST(MemoryTest, AFailedSubscriptChangesNothing) {
  const std::string key = "a name of more than fourteen bytes";
  FailEachAllocation([] { return Value(); }, [&key](Value& value) { value[key]; },
                     [](const Value& value) { EXPECT_TRUE(value.IsNull()); });
  for (const int size : {1, 4, 5, 12, 31, 32, 33, 64, 65, 128}) {
    const auto setup = [size] {
      Value value;
      for (int i = 0; i < size; ++i) {
        value[std::to_string(i)] = i;
      }
      return value;
    };
    FailEachAllocation(
        setup, [&key](Value& value) { value[key]; },
        [&setup, &key](Value& value) {
          EXPECT_EQ(setup(), value);
          EXPECT_FALSE(value.Has(key));
          value[key] = 1;
          EXPECT_TRUE(value.Has(key));
        });
  }
}

TEST(MemoryTest, AFailedAddJsonValueChangesNothing) {
  FailEachAllocation(
      Sample,
      [](Value& value) {
        value.AddJsonValue("a new name of some length", "a new text of some length");
      },
      [](const Value& value) { EXPECT_EQ(Sample(), value); });
}

TEST(MemoryTest, AFailedAppendChangesNothing) {
  FailEachAllocation([] { return Value(); }, [](Value& value) { value.Append(1); },
                     [](const Value& value) { EXPECT_TRUE(value.IsNull()); });
  FailEachAllocation(
      [] {
        Value value;
        EXPECT_TRUE(value.Parse("[1,2,3]"));
        return value;
      },
      [](Value& value) { value.Append("a text of more than fourteen bytes"); },
      [](const Value& value) { EXPECT_EQ("[1,2,3]", value.JsonValueToString()); });
}

TEST(MemoryTest, WritingAndComparingLeaveTheValueAlone) {
  FailEachAllocation(
      Sample, [](Value& value) { EXPECT_FALSE(value.ToStyledString().empty()); },
      [](const Value& value) { EXPECT_EQ(Sample(), value); });
  FailEachAllocation(
      [] {
        return Two{Sample(), Sample()};
      },
      [](Two& two) { EXPECT_TRUE(two.first == two.second); },
      [](const Two& two) { EXPECT_EQ(two.first, two.second); });
}

TEST(MemoryTest, ATextOfASizeThatNoMemoryHasIsRefused) {
  for (volatile std::size_t size : {SIZE_MAX, SIZE_MAX - 24, SIZE_MAX / 2 + 1}) {
    EXPECT_THROW(Value("text", size), std::bad_alloc) << size;
  }
}

TEST(MemoryTest, AReadDocumentTakesOneAllocationForEachContainerAndLongText) {
  const std::pair<std::string, long> cases[] = {
      {"12345", 0},
      {"\"fourteen bytes\"", 0},
      {"\"fifteen bytes!!\"", 1},
      {"[]", 0},
      {"{}", 0},
      {"[1,2.5,true,null,\"text\",[],{}]", 1},
      {"{\"a\":1,\"b\":2,\"c\":\"text\"}", 1},
      {"{\"a\":[1,2,3],\"a name of more than fourteen bytes\":4}", 3},
  };
  for (const auto& [text, expected] : cases) {
    Value value;
    EXPECT_EQ(expected, AllocationsOf([&value, &text = text] { value.Parse(text); })) << text;
  }
}

TEST(MemoryTest, ACopyTakesOneAllocationForEachContainerAndLongText) {
  Value value;
  ASSERT_TRUE(value.Parse("{\"a\":[1,[2],[]],\"a name of more than fourteen bytes\":{\"b\":3}}"));
  EXPECT_EQ(5, AllocationsOf([&value] { const Value copy = value; }));
}

TEST(MemoryTest, MovesAllocateNothing) {
  Value value = Sample();
  EXPECT_EQ(0, AllocationsOf([&value] {
              Value moved = std::move(value);
              value = std::move(moved);
            }));
  EXPECT_EQ(Sample(), value);
}

TEST(MemoryTest, ASmallDocumentIsWrittenWithTwoAllocations) {
  Value value;
  ASSERT_TRUE(value.Parse("{\"id\":17,\"name\":\"a name\",\"list\":[1,2,[3]]}"));
  // One for the text, one for the containers that are open.
  EXPECT_EQ(2, AllocationsOf([&value] { value.ToStyledString(); }));
}

TEST(MemoryTest, ALargeDocumentIsWrittenWithFewAllocations) {
  Value value;
  for (int i = 0; i < 100000; ++i) {
    value["items"].Append(i);
  }
  std::string text;
  EXPECT_LE(AllocationsOf([&value, &text] { text = value.ToStyledString(); }), 5);
  EXPECT_LE(text.capacity(), 2 * text.size());
}

// What follows a long text looks as if it were as long.
TEST(MemoryTest, ADocumentWhoseSizeIsGuessedWrongIsNotGivenRoomForTheGuess) {
  Value value;
  value.Append(std::string(20 << 20, 'x'));
  for (int i = 0; i < 2000; ++i) {
    value.Append(i);
  }
  const std::string text = value.ToStyledString();
  EXPECT_LE(text.capacity(), 10 * text.size());
}

}  // namespace
