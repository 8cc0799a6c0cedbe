// Members: adding, finding, replacing, removing and going through them.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
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

std::string NamesOf(const Value& value) {
  std::string names;
  for (const Member& member : value.Members()) {
    names += member.Name() + ' ';
  }
  return names;
}

TEST(SubscriptTest, AddsAMissingMemberAsNull) {
  Value value = Read("{\"a\":1}");
  EXPECT_TRUE(value["b"].IsNull());
  EXPECT_EQ("{\"a\":1,\"b\":null}", value.JsonValueToString());
}

TEST(SubscriptTest, YieldsTheMemberThatIsThere) {
  Value value = Read("{\"a\":1,\"b\":[2]}");
  EXPECT_EQ(1, value["a"].AsInt64());
  value["b"] = "new";
  EXPECT_EQ("{\"a\":1,\"b\":\"new\"}", value.JsonValueToString());
}

TEST(SubscriptTest, ReachesThroughMissingMembers) {
  Value value;
  value["a"]["b"]["c"] = 1;
  EXPECT_EQ("{\"a\":{\"b\":{\"c\":1}}}", value.JsonValueToString());
}

TEST(SubscriptTest, OfAnotherKindIsANullThatBelongsToNobody) {
  for (const char* text : {"true", "1", "-1.5", "\"text\"", "18446744073709551615",
                           "\"a text of more than fourteen bytes\"", "[]", "[1,{\"key\":2}]"}) {
    Value value = Read(text);
    const Value before = value;
    EXPECT_TRUE(value["key"].IsNull()) << text;
    value["key"] = "lost";
    EXPECT_TRUE(value["key"].IsNull()) << text;
    value["key"]["deeper"] = "lost";
    EXPECT_EQ("", value["key"].JsonValueToString()) << text;
    EXPECT_EQ(before, value);
  }
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

TEST(FindTest, YieldsTheMemberOrNothing) {
  Value value = Read("{\"a\":1,\"a name of more than fourteen bytes\":2}");
  ASSERT_NE(nullptr, value.Find("a"));
  EXPECT_EQ(1, value.Find("a")->AsInt64());
  EXPECT_EQ(2, value.Find("a name of more than fourteen bytes")->AsInt64());
  EXPECT_EQ(nullptr, value.Find("b"));
  EXPECT_EQ(nullptr, value.Find("a name of more than fourteen letters"));
  *value.Find("a") = "changed";
  const Value& constant = value;
  ASSERT_NE(nullptr, constant.Find("a"));
  EXPECT_EQ("changed", constant.Find("a")->AsString());
  EXPECT_EQ(nullptr, constant.Find(""));
  EXPECT_EQ(nullptr, constant.Find("changed"));
  EXPECT_EQ(2U, value.Size());
}

TEST(FindTest, OfAnotherKindOrOfNoMembersYieldsNothing) {
  for (Value value :
       {Value(), Value(1), Value("a"), Value::Array(), Value::Object(), Read("[{\"a\":1}]")}) {
    EXPECT_EQ(nullptr, value.Find("a"));
    EXPECT_EQ(nullptr, std::as_const(value).Find("a"));
    EXPECT_FALSE(value.Has("a"));
  }
}

TEST(FindTest, HasAMemberThatIsNull) {
  const Value value = Read("{\"a\":null}");
  EXPECT_TRUE(value.Has("a"));
  EXPECT_FALSE(value.Has("b"));
}

TEST(AddJsonValueTest, AddsAndReplaces) {
  Value value = Read("{\"a\":[1],\"b\":2}");
  value.AddJsonValue("c", "text");
  value.AddJsonValue("a", "a text of more than fourteen bytes");
  value.AddJsonValue("b", "");
  EXPECT_EQ("{\"a\":\"a text of more than fourteen bytes\",\"b\":\"\",\"c\":\"text\"}",
            value.JsonValueToString());
}

TEST(AddJsonValueTest, ChangesNoOtherKind) {
  for (const char* text : {"false", "1", "1.5", "\"text\"", "[]", "[{}]"}) {
    Value value = Read(text);
    value.AddJsonValue("a", "lost");
    EXPECT_EQ(Read(text), value) << text;
  }
}

TEST(AddJsonValueTest, TakesAStringThatIsPartOfTheObject) {
  Value value;
  value.AddJsonValue("a", "a text of more than fourteen bytes");
  value.AddJsonValue("a", value["a"].AsString() + "!");
  EXPECT_EQ("a text of more than fourteen bytes!", value["a"].AsString());
}

TEST(ObjectTest, SizeCountsMembers) {
  EXPECT_EQ(0U, Value::Object().Size());
  EXPECT_TRUE(Value::Object().Empty());
  Value value;
  for (std::size_t i = 1; i <= 100; ++i) {
    value[std::to_string(i)] = nullptr;
    EXPECT_EQ(i, value.Size());
  }
  EXPECT_FALSE(value.Empty());
  for (const Value& other : {Value(), Value(1), Value("text"), Value(true)}) {
    EXPECT_EQ(0U, other.Size());
    EXPECT_TRUE(other.Empty());
  }
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

TEST(ObjectTest, MembersComeInTheOrderInWhichTheyWereAdded) {
  Value value;
  std::string expected;
  for (int i = 0; i < 500; ++i) {
    const std::string name = std::to_string(i * 7919 % 1000);
    value[name] = i;
    expected += name + ' ';
  }
  EXPECT_EQ(expected, NamesOf(value));
  EXPECT_EQ(expected, NamesOf(Value(value)));
  EXPECT_EQ(expected, NamesOf(Read(value.ToStyledString())));
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

TEST(ObjectTest, OtherKindsHaveNoMembers) {
  for (Value value : {Value(), Value(1), Value("text"), Read("[1]"), Value::Object()}) {
    for (Member& member : value.Members()) {
      ADD_FAILURE() << member.Name();
    }
    EXPECT_TRUE(std::as_const(value).Members().begin() == std::as_const(value).Members().end());
  }
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

TEST(RemoveTest, RemovesOneMember) {
  Value value = Read("{\"a\":1,\"b\":[2,\"a text of more than fourteen bytes\"],\"c\":3}");
  EXPECT_TRUE(value.Remove("b"));
  EXPECT_EQ("{\"a\":1,\"c\":3}", value.JsonValueToString());
  EXPECT_FALSE(value.Remove("b"));
  EXPECT_TRUE(value.Remove("a"));
  EXPECT_TRUE(value.Remove("c"));
  EXPECT_TRUE(value.IsObject());
  EXPECT_TRUE(value.Empty());
  value["d"] = 4;
  EXPECT_EQ("{\"d\":4}", value.JsonValueToString());
}

TEST(RemoveTest, ChangesNoOtherKind) {
  for (Value value : {Value(), Value(1), Value("a"), Read("[{\"a\":1}]")}) {
    const Value before = value;
    EXPECT_FALSE(value.Remove("a"));
    EXPECT_EQ(before, value);
  }
}

// Everything that a large object does, against a model that is easy to trust.
TEST(RemoveTest, LargeObjectsStayInStep) {
  std::mt19937 random(20240606);
  Value value = Read("{\"0\":0,\"1\":1}");
  std::vector<std::pair<std::string, int>> model = {{"0", 0}, {"1", 1}};
  const auto find = [&model](const std::string& name) {
    return std::find_if(model.begin(), model.end(),
                        [&name](const auto& member) { return member.first == name; });
  };
  for (int i = 0; i < 6000; ++i) {
    // Names of both forms; fewer of them in the second half, so that most are removed again.
    const int range = i < 3000 ? 400 : 1200;
    const std::string name = std::string(random() % 2 == 0 ? "" : "a long name for number ") +
                             std::to_string(static_cast<int>(random() % 1000) % range);
    const auto found = find(name);
    EXPECT_EQ(found != model.end(), value.Has(name));
    if (random() % (i < 3000 ? 4 : 2) == 0) {
      EXPECT_EQ(found != model.end(), value.Remove(name));
      if (found != model.end()) {
        model.erase(found);
      }
    } else {
      value[name] = i;
      if (found == model.end()) {
        model.emplace_back(name, i);
      } else {
        found->second = i;
      }
    }
    ASSERT_EQ(model.size(), value.Size());
    if (i % 500 == 0) {
      Value copy = value;  // has one block, where the original has several
      EXPECT_EQ(value, copy);
      if (i % 1000 == 0) {
        value = std::move(copy);
      }
    }
  }
  auto expected = model.begin();
  for (const Member& member : value.Members()) {
    EXPECT_EQ(expected->first, member.Name());
    EXPECT_EQ(expected->second, member.Item().AsInt64());
    EXPECT_EQ(&member.Item(), value.Find(member.Name()));
    ++expected;
  }
  EXPECT_TRUE(expected == model.end());
}

TEST(RemoveTest, EveryMemberOfEveryPlace) {
  for (int size = 1; size <= 70; size += size < 10 ? 1 : 7) {
    for (int at = 0; at < size; ++at) {
      Value value;
      std::string expected;
      for (int i = 0; i < size; ++i) {
        value[std::to_string(i)] = i;
        expected += i == at ? "" : std::to_string(i) + ' ';
      }
      ASSERT_TRUE(value.Remove(std::to_string(at)));
      ASSERT_EQ(expected, NamesOf(value));
      ASSERT_FALSE(value.Has(std::to_string(at)));
      value["new"] = true;
      ASSERT_EQ(expected + "new ", NamesOf(value));
    }
  }
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

TEST(LargeObjectTest, GrowsAfterItWasRead) {
  for (const int duplicates : {0, 3}) {
    std::string text = "{";
    for (int i = 0; i < 40; ++i) {
      text += '"' + std::to_string(i) + "\":" + std::to_string(i) + ',';
    }
    for (int i = 0; i < duplicates; ++i) {
      text += '"' + std::to_string(i) + "\":" + std::to_string(i) + ',';
    }
    text.back() = '}';
    Value value = Read(text);
    for (int i = 40; i < 200; ++i) {
      value[std::to_string(i)] = i;
    }
    EXPECT_EQ(200U, value.Size());
    int expected = 0;
    for (const Member& member : value.Members()) {
      EXPECT_EQ(std::to_string(expected), member.Name());
      EXPECT_EQ(&member.Item(), value.Find(member.Name()));
      EXPECT_EQ(expected++, member.Item().AsInt64());
    }
    EXPECT_EQ(200, expected);
  }
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

// Around the sizes where objects begin to be searched in other ways.
TEST(LargeObjectTest, DuplicatesAreDroppedAtEverySize) {
  for (int size = 1; size <= 80; ++size) {
    for (const char* prefix : {"", "a long name for number "}) {
      std::string text = "{";
      std::string expected = "{";
      for (int i = 0; i < size; ++i) {
        const std::string name = '"' + std::string(prefix) + std::to_string(i) + "\":";
        text += name + "[" + std::to_string(i) + "],";
        expected += (i == 0 ? "" : ",") + name + std::to_string(i * 2);
      }
      for (int i = size - 1; i >= 0; --i) {
        text += '"' + std::string(prefix) + std::to_string(i) + "\":" + std::to_string(i * 2) +
                (i == 0 ? "}" : ",");
      }
      ASSERT_EQ(expected + '}', Read(text).JsonValueToString());
    }
  }
}

TEST(LargeObjectTest, OneDuplicateIsDroppedBehindAnyNumberOfOthers) {
  std::string text = "{\"0\":0";
  for (std::size_t size = 2; size <= 80; ++size) {
    text += ",\"" + std::to_string(size) + "\":0";
    const Value value = Read(text + ",\"0\":1}");
    EXPECT_EQ(value.Size(), size);
    EXPECT_EQ(value["0"], Value(1));
  }
}

TEST(LargeObjectTest, DuplicatesAreToldFromTextsThatEqualAName) {
  EXPECT_EQ(R"({"a":"b","b":2,"c":"a"})",
            Read(R"({"a":"b","b":1,"c":"b","b":2,"c":"a"})").JsonValueToString());
}

// Members are kept in blocks; the first one is gone through when it holds none any more, too.
TEST(RemoveTest, FromTheFrontUntilNothingIsLeft) {
  constexpr int kMembers = 40;
  Value value;
  for (int i = 0; i < kMembers; ++i) {
    value["m" + std::to_string(i)] = i;
  }
  for (int removed = 0; removed < kMembers; ++removed) {
    std::string text;
    int next = removed;
    for (const Member& member : value.Members()) {
      EXPECT_EQ(member.Item().AsInt64(), next);
      text += (text.empty() ? "{" : ",") + ("\"m" + std::to_string(next) + "\":");
      text += std::to_string(next++);
    }
    EXPECT_EQ(next, kMembers);
    EXPECT_EQ(value.JsonValueToString(), text + "}");
    Value read = Read(value.ToStyledString());
    EXPECT_EQ(read, value);
    EXPECT_EQ(Value(value), value);
    ASSERT_TRUE(value.Remove("m" + std::to_string(removed)));
  }
  EXPECT_EQ(value.JsonValueToString(), "{}");
}

}  // namespace
