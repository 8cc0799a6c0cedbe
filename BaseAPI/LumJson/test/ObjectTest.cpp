// Members: adding, finding, replacing, removing and going through them.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "../src/Storage.h"
#include "Cases.h"
#include "LumJson.h"

namespace {

using LumJson::Member;
using LumJson::Value;
using lumtest::Read;

using Model = nlohmann::ordered_json;

TEST(SubscriptTest, AddsAMissingMemberAsNull) {
  Value value = Read("{\"a\":1}");
  EXPECT_TRUE(value["b"].IsNull());
  EXPECT_EQ("{\"a\":1,\"b\":null}", value.JsonValueToString());
}

TEST(SubscriptTest, ReachesThroughMissingMembers) {
  Value value;
  value["a"]["b"]["c"] = 1;
  EXPECT_EQ("{\"a\":{\"b\":{\"c\":1}}}", value.JsonValueToString());
}

TEST(SubscriptTest, TheNullThatBelongsToNobodyIsFreshEachTime) {
  Value number(1);
  Value text("text");
  number["a"]["b"] = "lost";
  EXPECT_TRUE(text["a"].IsNull());
  number["a"] = "lost";
  EXPECT_TRUE(text["b"].IsNull());
  EXPECT_TRUE(text.At(3).IsNull());
}

TEST(SubscriptTest, OfAConstantNeverAdds) {
  const Value value = Read("{\"a\":1}");
  EXPECT_EQ(1, value["a"].AsInt64());
  EXPECT_TRUE(value["b"].IsNull());
  EXPECT_TRUE(value["b"]["c"]["d"].IsNull());
  EXPECT_EQ(1U, value.Size());
  const Value null;
  EXPECT_TRUE(null["a"].IsNull());
  EXPECT_TRUE(null.IsNull());
  const Value array = Read("[1]");
  EXPECT_TRUE(array["a"].IsNull());
}

TEST(SubscriptTest, NamesMayHoldAnyBytes) {
  Value value;
  const std::string names[] = {"",
                               std::string(1, '\0'),
                               std::string(2, '\0'),
                               "a",
                               std::string("a\0", 2),
                               "\xFF",
                               std::string(14, 'n'),
                               std::string(15, 'n'),
                               std::string(16, 'n'),
                               std::string(100, 'n')};
  int number = 0;
  for (const std::string& name : names) {
    value[name] = number++;
  }
  EXPECT_EQ(std::size(names), value.Size());
  number = 0;
  for (const std::string& name : names) {
    EXPECT_EQ(number++, value[name].AsInt64(-1));
  }
}

TEST(AddJsonValueTest, AddsAndReplaces) {
  Value value = Read("{\"a\":[1],\"b\":2}");
  value.AddJsonValue("c", "text");
  value.AddJsonValue("a", "a text of more than fourteen bytes");
  value.AddJsonValue("b", "");
  value.AddJsonValue("c", value["c"].AsString() + "!");
  EXPECT_EQ(R"({"a":"a text of more than fourteen bytes","b":"","c":"text!"})",
            value.JsonValueToString());
}

TEST(ObjectTest, MembersStayAtTheirPlaceWhenOthersAreAdded) {
  Value value = Read("{\"first\":1}");
  Value& first = value["first"];
  Value& second = value["second"];
  std::vector<Value*> members;
  for (int i = 0; i < 1000; ++i) {
    members.push_back(&(value["member " + std::to_string(i)] = i));
  }
  EXPECT_EQ(&first, value.Find("first"));
  EXPECT_EQ(&second, value.Find("second"));
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(members[static_cast<std::size_t>(i)], value.Find("member " + std::to_string(i)));
    EXPECT_EQ(i, members[static_cast<std::size_t>(i)]->AsInt64());
  }
}

TEST(ObjectTest, MembersCanBeChangedInALoop) {
  Value value = Read("{\"a\":1,\"b\":\"two\",\"c\":[3]}");
  for (Member& member : value.Members()) {
    member.Item() = member.Name() + "!";
  }
  EXPECT_EQ("{\"a\":\"a!\",\"b\":\"b!\",\"c\":\"c!\"}", value.JsonValueToString());
}

TEST(ObjectTest, MembersOfAConstantAreReadInALoop) {
  const Value value = Read("{\"a\":1,\"a name of more than fourteen bytes\":2}");
  std::string seen;
  for (const Member& member : value.Members()) {
    seen += std::string(member.NameData(), member.NameSize()) + '=' +
            member.Item().JsonValueToString() + ';';
  }
  EXPECT_EQ("a=1;a name of more than fourteen bytes=2;", seen);
}

TEST(ObjectTest, IteratorsServeTheStandardAlgorithms) {
  const Value value = Read("{\"a\":1,\"b\":2,\"c\":2}");
  const auto members = value.Members();
  EXPECT_EQ(3, std::distance(members.begin(), members.end()));
  EXPECT_EQ(2, std::count_if(members.begin(), members.end(),
                             [](const Member& member) { return member.Item() == 2; }));
  auto iterator = members.begin();
  EXPECT_EQ("a", iterator++->Name());
  EXPECT_EQ("b", iterator->Name());
  EXPECT_EQ("c", (++iterator)->Name());
  EXPECT_FALSE(iterator == members.end());
  EXPECT_TRUE(++iterator == members.end());
}

// Expects the same object, however it is looked at.
void ExpectSame(const Model& model, const Value& value) {
  const std::string text = model.dump(4) + '\n';
  ASSERT_EQ(text, value.ToStyledString());
  ASSERT_EQ(model.size(), value.Size());
  ASSERT_EQ(model.empty(), value.Empty());
  auto expected = model.begin();
  for (const Member& member : value.Members()) {
    ASSERT_TRUE(expected != model.end());
    ASSERT_EQ(expected.key(), member.Name());
    ASSERT_EQ(*expected, member.Item().AsInt64());
    ASSERT_EQ(&member.Item(), value.Find(member.Name()));
    ++expected;
  }
  ASSERT_TRUE(expected == model.end());
  ASSERT_EQ(value, Value(value));
  ASSERT_EQ(value, Read(text));
}

// Adds and removes members at random, first more of the one, then more of the other.
void WalkBesideAModel(unsigned members) {
  std::mt19937 random(members);
  Value value = Value::Object();
  Model model = Model::object();
  const unsigned steps = 40 * members;
  for (unsigned i = 0; i < steps; ++i) {
    const unsigned number = random() % members;  // names of both forms, on both sides of the border
    const std::string name =
        (number % 2 == 0 ? "twelve bytes" : "a long name for number ") + std::to_string(number);
    const Value* const found = std::as_const(value).Find(name);
    ASSERT_EQ(found, value.Find(name));
    ASSERT_EQ(found != nullptr, value.Has(name));
    ASSERT_EQ(model.contains(name), value.Has(name));
    if (random() % 8 < (i < steps / 2 ? 2 : 6)) {
      ASSERT_EQ(model.erase(name) == 1, value.Remove(name));
    } else {
      value[name] = i;
      model[name] = i;
    }
    if (i % members == 0) {
      ASSERT_NO_FATAL_FAILURE(ExpectSame(model, value));
    }
    if (i % (3 * members) == 0) {  // has one block, where the original has several
      value = i % 2 == 0 ? Value(value) : Read(value.ToStyledString());
    }
  }
}

TEST(ObjectTest, StaysInStepWithAModel) {
  for (unsigned members = 1; members <= 80; members += members < 14 ? 1 : 11) {
    ASSERT_NO_FATAL_FAILURE(WalkBesideAModel(members)) << members;
  }
  WalkBesideAModel(400);
}

// The index of a large object's names, as it stands in memory.
const LumJson::detail::Growth& IndexOf(const Value& value) {
  static const LumJson::detail::Growth kNone;
  const LumJson::detail::Growth* const growth = LumJson::detail::Access::Of(value).block->growth;
  return growth == nullptr || growth->index == nullptr ? kNone : *growth;
}

// How many places a search passes on the average: few, when at least half of them are free and the
// names do not crowd.
void CheckSearch(const Value& value) {
  const LumJson::detail::Growth& growth = IndexOf(value);
  ASSERT_NE(nullptr, growth.index);
  const std::size_t places = growth.mask + 1;
  ASSERT_GE(places, 2 * value.Size());
  std::size_t crowd = 0;
  std::size_t passed = 0;
  for (std::size_t i = 0; i < places; ++i) {
    crowd = growth.index[i] == nullptr ? 0 : crowd + 1;
    passed += crowd;
  }
  ASSERT_LE(passed, 4 * places);
}

using NameForm = std::pair<const char*, const char*>;

// Short names, and long ones that differ in their first word or in their last bytes alone.
const NameForm kNameForms[] = {
    {"member ", ""}, {"", " is the number of the member"}, {"the member has the number ", ""}};

std::string NameOf(const NameForm& form, int number) {
  return form.first + std::to_string(number) + form.second;
}

// Members are looked for in the index and nowhere else: none is found while it is empty.
void CheckSearchByIndexAlone(const NameForm& form) {
  Value value;
  for (int i = 0; i < 100; ++i) {
    value[NameOf(form, i)] = i;
  }
  ASSERT_NO_FATAL_FAILURE(CheckSearch(value));
  const LumJson::detail::Growth& growth = IndexOf(value);
  const std::vector<LumJson::detail::Rep*> places(growth.index, growth.index + growth.mask + 1);
  std::fill_n(growth.index, places.size(), nullptr);
  for (int i = 0; i < 100; ++i) {
    ASSERT_FALSE(value.Has(NameOf(form, i)));
  }
  std::copy(places.begin(), places.end(), growth.index);
}

// Quadratic work on a hundred thousand members would take minutes: it is seen before.
TEST(LargeObjectTest, IsBuiltAndSearchedQuickly) {
  constexpr int kMembers = 100000;
  for (const NameForm& form : kNameForms) {
    ASSERT_NO_FATAL_FAILURE(CheckSearchByIndexAlone(form));
    Value value;
    const void* index = nullptr;
    int indexes = 0;
    for (int i = 0; i < kMembers; ++i) {
      value[NameOf(form, i)] = i;
      if (i >= 64 && (i & (i - 1)) == 0) {
        ASSERT_NO_FATAL_FAILURE(CheckSearch(value)) << i;
      }
      if (i >= 64 && IndexOf(value).index != index) {
        index = IndexOf(value).index;
        ASSERT_LE(++indexes, 12) << "the index is made anew for " << i << " members";
      }
    }
    EXPECT_EQ(std::size_t{kMembers}, value.Size());
    for (int i = 0; i < kMembers; ++i) {
      ASSERT_EQ(i, std::as_const(value)[NameOf(form, i)].AsInt64(-1));
    }
  }
}

// Whatever stood in the index: a stale entry would take a place for good.
TEST(LargeObjectTest, RemovingLeavesTheOtherMembersAloneInTheIndex) {
  Value value;
  for (int i = 0; i < 60; ++i) {
    value[std::to_string(i)] = i;
  }
  const LumJson::detail::Growth& growth = IndexOf(value);
  LumJson::detail::Rep** const end = growth.index + growth.mask + 1;
  // The last one of its block, so that no other name moves to where it stood.
  std::fill(growth.index, end, reinterpret_cast<LumJson::detail::Rep*>(value.Find("7")) - 1);
  ASSERT_TRUE(value.Remove("7"));
  EXPECT_EQ(59, end - growth.index - std::count(growth.index, end, nullptr));
}

TEST(LargeObjectTest, IsReadQuicklyAndItsDuplicatesAreDropped) {
  for (const int members : {50, 100, 100000}) {
    std::string text = "{";
    for (int i = 0; i < 2 * members; ++i) {
      text += (i == 0 ? "\"" : ",\"") + std::to_string(i % members) +
              "\":" + (i % 3 == 0 ? "\"a text of more than fourteen bytes\"" : std::to_string(i));
    }
    const Value value = Read(text + '}');
    ASSERT_EQ(static_cast<std::size_t>(members), value.Size());
    ASSERT_NO_FATAL_FAILURE(CheckSearch(value));
    ASSERT_NO_FATAL_FAILURE(CheckSearch(Value(value)));
    int expected = 0;
    for (const Member& member : value.Members()) {
      ASSERT_EQ(std::to_string(expected), member.Name());
      const int last = expected + members;
      ASSERT_EQ(last % 3 == 0 ? Value("a text of more than fourteen bytes") : Value(last),
                member.Item());
      ++expected;
    }
  }
}

}  // namespace
