// Memory: how often it is asked for, and what holds when there is none left.
//
// Each operation is run as often as it allocates, and another allocation fails in each run. What is
// lost is told by the leak checker.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <utility>

#include "../src/Storage.h"
#include "Cases.h"
#include "LumJson.h"
#include "support/Alloc.h"

namespace {

using LumJson::Value;
using lumtest::Read;

template <typename Function>
long AllocationsOf(Function function) {
  const std::size_t before = lumtest::NewsOfThisThread();
  function();
  return static_cast<long>(lumtest::NewsOfThisThread() - before);
}

// Blocks not given back.
long Living() {
  return static_cast<long>(lumtest::LiveNews());
}

// Runs `operation` again and again, its first allocation failing, then its second, until one run
// needs no more. `check` sees the state after each failure.
template <typename Setup, typename Operation, typename Check>
void FailEachAllocation(Setup setup, Operation operation, Check check) {
  bool failed = true;
  std::size_t runs = 0;
  while (failed) {
    const long before = Living();
    {
      auto state = setup();
      failed = false;
      lumtest::FailNextNew(++runs);
      try {
        operation(state);
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      lumtest::FailNextNew(0);
      if (failed) {
        check(state);
      }
    }
    ASSERT_EQ(before, Living()) << "allocation " << runs << " of the operation failed";
  }
  EXPECT_GT(runs, 1U) << "nothing was allocated";
}

const char* const kDocument =
    R"({"id":7,"name of more than fourteen bytes":"a text of more than fourteen bytes",
        "list":[1,2.5,null,true,"short",["nested",{"a":{"b":[]}}]],"\u00e9scaped \n text of some length":
        "a text \t with an escape","id":8,"list":["again, more than fourteen bytes"]})";

std::string ArrayOfOnes(int elements) {
  std::string text = "[1";
  for (int i = 1; i < elements; ++i) {
    text += ",1";
  }
  return text + ']';
}

// Members "1", "2", ... , each of which is 1.
std::string ObjectOfOnes(int members) {
  std::string text = "{\"1\":1";
  for (int i = 2; i <= members; ++i) {
    text += ",\"" + std::to_string(i) + "\":1";
  }
  return text + '}';
}

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
        "[\"a text of more than fourteen bytes\"," + ArrayOfOnes(1000) + ']',
        std::string("[0e-99999999999,\"a text of more than fourteen bytes\"]")}) {
    FailEachAllocation([] { return Value("a text of more than fourteen bytes"); },
                       [&text](Value& value) { EXPECT_TRUE(value.Parse(text)); },
                       [](const Value& value) { EXPECT_TRUE(value.IsNull()); });
  }
}

Value Sample() {
  Value value = Read(kDocument);
  EXPECT_TRUE(value["large"].Parse(LargeDocument()));
  return value;
}

TEST(MemoryTest, AFailedOperationChangesNothing) {
  const Value sample = Sample();
  const std::string text = "a text of more than fourteen bytes";
  const struct {
    Value before;
    std::function<void(Value&)> operation;
  } kCases[] = {
      {text, [&](Value& value) { value = sample; }},
      {Value(), [&](Value& value) { value[text]; }},
      {sample, [&](Value& value) { value.AddJsonValue(text, text); }},
      {Value(), [](Value& value) { value.Append(1); }},
      {Read("[1,2,3]"), [&](Value& value) { value.Append(text); }},
      {sample, [](Value& value) { EXPECT_FALSE(value.ToStyledString().empty()); }},
      {sample, [&](Value& value) { EXPECT_TRUE(value == sample); }},
  };
  for (const auto& row : kCases) {
    FailEachAllocation([&row] { return row.before; }, row.operation,
                       [&row](const Value& value) { EXPECT_EQ(row.before, value); });
    EXPECT_EQ(Sample(), sample);
  }
}

TEST(MemoryTest, AFailedSubscriptChangesNothing) {
  const std::string key = "a name of more than fourteen bytes";
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

TEST(MemoryTest, ATextOfASizeThatNoMemoryHasIsRefused) {
  for (volatile std::size_t size : {SIZE_MAX, SIZE_MAX - 8, SIZE_MAX / 2 + 1}) {
    EXPECT_THROW(Value("text", size), std::bad_alloc) << size;
  }
}

// What `operation`, which has to throw, does first.
template <typename Function>
bool AsksForMemory(Function operation) {
  lumtest::FailNextNew(1);
  bool throws = false;
  try {
    operation();
  } catch (const std::bad_alloc&) {
    throws = true;
  }
  const bool asks = lumtest::AllocationHasFailed();
  lumtest::FailNextNew(0);
  EXPECT_TRUE(throws);
  return asks;
}

// They would take 64 GiB: the containers only say that they had them.
TEST(MemoryTest, MoreSlotsThanABlockCanCountAreRefused) {
  using LumJson::detail::kMaxSlots;
  Value object = Read(ObjectOfOnes(40));
  std::size_t& slots = LumJson::detail::Access::Of(object).block->growth->size;
  const auto copy = [&object] { const Value value = object; };
  const std::size_t slotsBefore = std::exchange(slots, kMaxSlots);
  EXPECT_TRUE(AsksForMemory(copy));
  slots = kMaxSlots + 1;
  EXPECT_FALSE(AsksForMemory(copy));
  slots = slotsBefore;

  Value array = Read("[1]");
  LumJson::detail::Block& block = *LumJson::detail::Access::Of(array).block;
  const auto append = [&array] { array.Append(1); };
  block.size = block.capacity = kMaxSlots - 1;
  EXPECT_TRUE(AsksForMemory(append));
  block.size = block.capacity = kMaxSlots;
  EXPECT_FALSE(AsksForMemory(append));
  block.size = block.capacity = 1;
  EXPECT_EQ("[1]", array.JsonValueToString());
}

TEST(MemoryTest, AMemberForWhatIsNoObjectTakesNone) {
  const std::string text(100, 'x');
  for (Value value : {Value::Array(), Value(1), Value("a")}) {
    lumtest::FailNextNew(1);
    EXPECT_NO_THROW(value.AddJsonValue("name", text));
    EXPECT_FALSE(lumtest::AllocationHasFailed());
    lumtest::FailNextNew(0);
  }
}

TEST(MemoryTest, ReadingAndCopyingTakeOneAllocationForEachContainerAndLongText) {
  const struct {
    std::string json;
    long toRead;
    long toCopy;
  } kCases[] = {
      {"12345", 0, 0},
      {"\"fourteen bytes\"", 0, 0},
      {"\"fifteen bytes!!\"", 1, 1},
      {"[]", 0, 0},
      {"{}", 0, 0},
      {"[1,2.5,true,null,\"text\",[],{}]", 1, 1},
      {"{\"a\":1,\"b\":2,\"c\":\"text\"}", 1, 1},
      {"{\"a\":[1,[2],[]],\"a name of more than fourteen bytes\":{\"b\":3}}", 5, 5},
      {ObjectOfOnes(32), 1, 1},
      {ObjectOfOnes(33), 3, 3},  // and an index
      // More than 128 values of open containers take memory while they are read.
      {ArrayOfOnes(128), 1, 1},
      {ArrayOfOnes(129), 2, 1},
      {ArrayOfOnes(256), 2, 1},
      {ArrayOfOnes(257), 3, 1},
  };
  for (const auto& row : kCases) {
    Value value;
    EXPECT_EQ(row.toRead, AllocationsOf([&] { value.Parse(row.json); })) << row.json;
    EXPECT_EQ(row.toCopy, AllocationsOf([&] { const Value copy = value; })) << row.json;
  }
  Value emptied = Read("{\"a\":1}");
  emptied.Remove("a");
  EXPECT_EQ(0, AllocationsOf([&] { const Value copy = emptied; }));
}

// Which members of an object, counted from 1, take memory when they are added, and how often.
std::map<int, long> AllocationsOfMembers(Value& value, int last) {
  std::map<int, long> allocationsOf;
  for (int i = static_cast<int>(value.Size()) + 1; i <= last; ++i) {
    const std::string name = std::to_string(i);
    const long taken = AllocationsOf([&value, &name] { value[name] = 1; });
    if (taken != 0) {
      allocationsOf[i] = taken;
    }
  }
  return allocationsOf;
}

TEST(MemoryTest, AnObjectGrowsByAsManyMembersAsItHas) {
  Value value;
  const std::map<int, long> expected = {
      {1, 1},              // a block for 4
      {5, 2},              // another one, and what keeps the two together
      {9, 1},  {17, 1},    // blocks for 8 and 16
      {33, 2},             // a block for 32 and an index
      {64, 1}, {128, 1},   // an index of twice the size when it is half full
      {65, 1}, {129, 1}};  // blocks for 64 and 128
  EXPECT_EQ(expected, AllocationsOfMembers(value, 200));

  Value small = Read(ObjectOfOnes(1));  // by four at least
  EXPECT_EQ((std::map<int, long>{{2, 2}, {6, 1}, {11, 1}}), AllocationsOfMembers(small, 15));

  Value large = Read(ObjectOfOnes(40));  // has its index already, and so has a copy
  Value copy = large;
  for (Value* one : {&large, &copy}) {
    EXPECT_EQ((std::map<int, long>{{41, 1}, {64, 1}}), AllocationsOfMembers(*one, 70));
  }
}

TEST(MemoryTest, AnArrayDoublesItsRoom) {
  Value value;
  for (int i = 1; i <= 200; ++i) {
    const bool grows = i == 1 || i == 5 || i == 9 || i == 17 || i == 33 || i == 65 || i == 129;
    EXPECT_EQ(grows ? 1 : 0, AllocationsOf([&value, i] { value.Append(i); })) << i;
  }
}

TEST(MemoryTest, WhatIsRemovedOrReplacedGivesItsMemoryBack) {
  const std::string text = "a text of more than fourteen bytes";
  Value object;
  object["kept"];
  const long withoutMember = Living();
  object[text] = Value(text);
  EXPECT_EQ(withoutMember + 2, Living());
  object[text] = nullptr;
  EXPECT_EQ(withoutMember + 1, Living());
  object[text].Append(Value(text));
  EXPECT_EQ(withoutMember + 3, Living());
  EXPECT_TRUE(object.Remove(text));
  EXPECT_EQ(withoutMember, Living());

  Value array;
  array.Append(1);
  const long withoutElement = Living();
  array.Append(Value(text));
  EXPECT_EQ(withoutElement + 1, Living());
  EXPECT_TRUE(array.RemoveAt(1));
  EXPECT_EQ(withoutElement, Living());
}

TEST(MemoryTest, MovesAllocateNothing) {
  Value value = Sample();
  EXPECT_EQ(0, AllocationsOf([&value] {
              Value moved = std::move(value);
              value = std::move(moved);
            }));
  EXPECT_EQ(Sample(), value);
}

TEST(MemoryTest, WritingTakesMemoryForTheTextAndForTheOpenContainers) {
  const std::pair<std::string, long> cases[] = {
      {"17", 0},
      {"{\"id\":17,\"name\":\"a name\",\"list\":[1,2,[3]]}", 2},
      {std::string(16, '[') + '1' + std::string(16, ']'), 2},
      {std::string(17, '[') + '1' + std::string(17, ']'), 3},
  };
  for (const auto& [json, expected] : cases) {
    const Value value = Read(json);
    EXPECT_EQ(expected, AllocationsOf([&v = value] { v.ToStyledString(); })) << json;
  }
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

// The rest of it is as long as what was written shows, in each of the containers that are open.
TEST(MemoryTest, AnEvenDocumentIsWrittenIntoOneAllocationOfItsSize) {
  Value value;
  for (int row = 0; row < 3000; ++row) {
    Value numbers;
    for (int i = 0; i < 100; ++i) {
      numbers.Append(123456);
    }
    value.Append(std::move(numbers));
  }
  std::string text;
  EXPECT_EQ(2, AllocationsOf([&value, &text] { text = value.ToStyledString(); }));
  EXPECT_LE(text.capacity(), text.size() / 100 * 115);
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

// Wherever the memory for the long text ends.
TEST(MemoryTest, AListBehindALongTextIsGuessedByItsOwnBeginning) {
  Value numbers;
  for (int i = 0; i < 100000; ++i) {
    numbers.Append(123456);
  }
  for (std::size_t size = 1000000; size < 2200000; size += 100000) {
    Value value;
    value.Append(std::string(size, 'x'));
    value.Append(numbers);
    const std::string text = value.ToStyledString();
    EXPECT_LE(text.capacity(), text.size() / 100 * 215) << size;
  }
}

}  // namespace
