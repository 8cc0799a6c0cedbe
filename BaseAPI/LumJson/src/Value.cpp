// The public face: kinds, conversions, members, elements and what nobody owns.
#include <algorithm>
#include <utility>

#include "LumJson.h"
#include "Reader.h"
#include "Storage.h"
#include "Writer.h"

namespace LumJson {

using detail::Access;
using detail::Kind;
using detail::Rep;

namespace {

// What access to a missing place yields: a fresh null, one for each thread.
Value& Nobody() noexcept {
  thread_local Value nobody;
  nobody = Value();
  return nobody;
}

const Value kNull;

// Slots hold values: see the assertions in Storage.h.
Value* AsValue(Rep* slot) {
  return reinterpret_cast<Value*>(slot);
}

}  // namespace

template <typename M>
MemberIterator<M> Access::FirstMember(const Rep& object) {
  MemberIterator<M> first;
  if (object.kind == Kind::kObject && object.block != nullptr) {
    first.current_ = reinterpret_cast<M*>(object.block->Slots());
    first.end_ = first.current_ + object.block->size / 2;
    first.block_ = object.block->growth == nullptr ? nullptr : object.block->growth->next;
    if (first.current_ == first.end_) {
      first.EnterBlock();
    }
  }
  return first;
}

template <typename M>
void MemberIterator<M>::EnterBlock() noexcept {
  while (block_ != nullptr && current_ == end_) {
    current_ = reinterpret_cast<M*>(const_cast<detail::Block*>(block_)->Slots());
    end_ = current_ + block_->size / 2;
    block_ = block_->next;
  }
  if (current_ == end_) {
    current_ = nullptr;
  }
}

template void MemberIterator<Member>::EnterBlock() noexcept;
template void MemberIterator<const Member>::EnterBlock() noexcept;

Value::Value(const char* text) : rep_() {
  if (text != nullptr) {
    rep_ = detail::MakeText(text);
  }
}

Value::Value(const std::string& text) : rep_(detail::MakeText(text)) {}

Value::Value(const char* text, std::size_t size)
    : rep_(text == nullptr ? Rep() : detail::MakeText(std::string_view(text, size))) {}

Value Value::Array() noexcept {
  Value value;
  value.rep_.kind = Kind::kArray;
  return value;
}

Value Value::Object() noexcept {
  Value value;
  value.rep_.kind = Kind::kObject;
  return value;
}

Value::Value(const Value& other) : rep_(detail::CopyTree(other.rep_)) {}

Value& Value::operator=(const Value& other) {
  *this = Value(other);
  return *this;
}

void Value::ReleaseMemory() noexcept {
  detail::ReleaseTree(rep_);
}

bool Value::Parse(const std::string& text) {
  *this = Value();
  return detail::ReadDocument(text, rep_);
}

std::string Value::ToStyledString() const {
  return detail::WriteStyled(rep_);
}

std::string Value::JsonValueToString() const {
  if (IsString()) {
    return AsString();
  }
  return IsNull() ? std::string() : detail::WriteCompact(rep_);
}

bool Value::AsBool(bool otherwise) const noexcept {
  return IsBool() ? rep_.unsignedInteger != 0 : otherwise;
}

std::int64_t Value::AsInt64(std::int64_t otherwise) const noexcept {
  std::int64_t integer = 0;
  if (IsInteger()) {
    return rep_.integer;
  }
  return IsDouble() && detail::ToInteger(rep_.number, integer) ? integer : otherwise;
}

std::uint64_t Value::AsUint64(std::uint64_t otherwise) const noexcept {
  std::uint64_t integer = 0;
  if (IsUnsigned()) {
    return rep_.unsignedInteger;
  }
  return IsDouble() && detail::ToInteger(rep_.number, integer) ? integer : otherwise;
}

double Value::AsDouble(double otherwise) const noexcept {
  switch (rep_.kind) {
    case Kind::kInteger:
      return static_cast<double>(rep_.integer);
    case Kind::kUnsigned:
      return static_cast<double>(rep_.unsignedInteger);
    case Kind::kDouble:
      return rep_.number;
    default:
      return otherwise;
  }
}

std::string Value::AsString(const std::string& otherwise) const {
  return IsString() ? std::string(detail::TextOf(rep_)) : otherwise;
}

const char* Value::StringData() const noexcept {
  return IsString() ? detail::TextOf(rep_).data() : nullptr;
}

std::size_t Value::StringSize() const noexcept {
  return IsString() ? detail::TextOf(rep_).size() : 0;
}

std::size_t Value::Size() const noexcept {
  if (!detail::IsContainer(rep_)) {
    return 0;
  }
  return detail::SlotCount(rep_) / (IsObject() ? 2 : 1);
}

Value& Value::operator[](const std::string& key) {
  if (IsNull()) {
    // Null stays null when adding the member throws.
    Value object = Object();
    Rep* const slot = detail::AddMember(object.rep_, key);
    *this = std::move(object);
    return *AsValue(slot);
  }
  if (!IsObject()) {
    return Nobody();
  }
  Rep* const found = detail::FindMember(rep_, key);
  return *AsValue(found != nullptr ? found : detail::AddMember(rep_, key));
}

const Value& Value::operator[](const std::string& key) const noexcept {
  const Value* const found = Find(key);
  return found == nullptr ? kNull : *found;
}

Value* Value::Find(const std::string& key) noexcept {
  return IsObject() ? AsValue(detail::FindMember(rep_, key)) : nullptr;
}

const Value* Value::Find(const std::string& key) const noexcept {
  return IsObject() ? AsValue(detail::FindMember(rep_, key)) : nullptr;
}

Value& Value::At(std::size_t index) noexcept {
  return IsArray() && index < Size() ? *AsValue(rep_.block->Slots() + index) : Nobody();
}

const Value& Value::At(std::size_t index) const noexcept {
  return IsArray() && index < Size() ? *AsValue(rep_.block->Slots() + index) : kNull;
}

void Value::AddJsonValue(const std::string& key, const std::string& text) {
  if (IsNull() || IsObject()) {
    Value value(text);
    (*this)[key] = std::move(value);
  }
}

bool Value::Append(Value element) {
  if (IsNull()) {
    Value array = Array();
    detail::AppendElement(array.rep_, element.rep_);
    *this = std::move(array);
    return true;
  }
  if (!IsArray()) {
    return false;
  }
  detail::AppendElement(rep_, element.rep_);
  return true;
}

bool Value::Remove(const std::string& key) noexcept {
  return IsObject() && detail::RemoveMember(rep_, key);
}

bool Value::RemoveAt(std::size_t index) noexcept {
  if (!IsArray() || index >= Size()) {
    return false;
  }
  Value* const first = AsValue(rep_.block->Slots());
  std::move(first + index + 1, first + Size(), first + index);
  first[Size() - 1] = Value();
  --rep_.block->size;
  return true;
}

ElementRange<Value> Value::Elements() noexcept {
  if (!IsArray() || Empty()) {
    return ElementRange<Value>(nullptr, nullptr);
  }
  Value* const first = AsValue(rep_.block->Slots());
  return ElementRange<Value>(first, first + Size());
}

ElementRange<const Value> Value::Elements() const noexcept {
  if (!IsArray() || Empty()) {
    return ElementRange<const Value>(nullptr, nullptr);
  }
  const Value* const first = AsValue(rep_.block->Slots());
  return ElementRange<const Value>(first, first + Size());
}

MemberRange<Member> Value::Members() noexcept {
  return MemberRange<Member>(Access::FirstMember<Member>(rep_));
}

MemberRange<const Member> Value::Members() const noexcept {
  return MemberRange<const Member>(Access::FirstMember<const Member>(rep_));
}

bool Value::Equals(const Value& other) const {
  return detail::EqualTrees(rep_, other.rep_);
}

}  // namespace LumJson
