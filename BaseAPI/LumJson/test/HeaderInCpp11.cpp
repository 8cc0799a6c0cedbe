// A caller in C++11 that uses everything the header offers.
#include <cstdint>
#include <string>
#include <utility>

#include "LumJson.h"

static_assert(__cplusplus == 201103L, "this file stands for callers in C++11");

std::string UseAllFromCpp11() {
  using LumJson::Member;
  using LumJson::Value;

  Value value;
  value["bool"] = true;
  value["int"] = -1;
  value["unsigned"] = static_cast<std::uint64_t>(1) << 63;
  value["double"] = 0.5;
  value["text"] = "text";
  value["bytes"] = Value("bytes", 5);
  value["null"] = nullptr;
  value["array"] = Value::Array();
  value["object"] = Value::Object();
  value["gone"] = 0;
  value.AddJsonValue("added", "added");
  value.Remove("gone");
  value["array"].Append(1);
  value["array"].Append(std::move(value["int"]));
  value["array"].RemoveAt(0);

  const Value copy(value);
  std::string seen;
  for (const Member& member : copy.Members()) {
    seen += member.Name() + std::string(member.NameData(), member.NameSize()) + ' ';
  }
  for (Member& member : value.Members()) {
    member.Item() = seen;
  }
  for (const Value& element : copy["array"].Elements()) {
    seen += element.JsonValueToString();
  }
  for (Value& element : value.Elements()) {
    seen += element.ToStyledString();
  }
  Value again;
  const bool same = again.Parse(copy.ToStyledString()) && again == copy && !(again != copy);
  const int kinds = copy.IsNull() + copy.IsBool() + copy.IsNumber() + copy.IsInteger() +
                    copy.IsUnsigned() + copy.IsDouble() + copy.IsString() + copy.IsArray() +
                    copy.IsObject();
  const Value* const found = copy.Find("text");
  if (!same || kinds != 1 || !copy.Has("text") || found == nullptr || copy.Empty() ||
      copy.Size() != 10 || copy["bool"].AsBool() != true || copy["array"].At(0).AsInt64() != -1 ||
      copy["unsigned"].AsUint64() == 0 || copy["double"].AsDouble() != 0.5 ||
      std::string(found->StringData(), found->StringSize()) != found->AsString() ||
      static_cast<int>(Value::kMaxDepth) < 100) {
    return "wrong";
  }
  return seen;
}
