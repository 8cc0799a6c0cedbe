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
    first.m_current = reinterpret_cast<M*>(object.block->Slots());
    first.m_end = first.m_current + object.block->size / 2;
    first.m_block = object.block->growth == nullptr ? nullptr : object.block->growth->next;
    first.EnterBlock();
  }
  return first;
}

template <typename M>
void MemberIterator<M>::EnterBlock() noexcept {
  while (m_block != nullptr && m_current == m_end) {
    m_current = reinterpret_cast<M*>(const_cast<detail::Block*>(m_block)->Slots());
    m_end = m_current + m_block->size / 2;
    m_block = m_block->next;
  }
  if (m_current == m_end) {
    m_current = nullptr;
  }
}

template void MemberIterator<Member>::EnterBlock() noexcept;
template void MemberIterator<const Member>::EnterBlock() noexcept;

Value::Value(const char* text) : m_rep() {
  if (text != nullptr) {
    m_rep = detail::MakeText(text);
  }
}

Value::Value(const std::string& text) : m_rep(detail::MakeText(text)) {}

Value::Value(const char* text, std::size_t size)
    : m_rep(text == nullptr ? Rep() : detail::MakeText(std::string_view(text, size))) {}

Value Value::Array() noexcept {
  Value value;
  value.m_rep.kind = Kind::kArray;
  return value;
}

Value Value::Object() noexcept {
  Value value;
  value.m_rep.kind = Kind::kObject;
  return value;
}

Value::Value(const Value& other) : m_rep(detail::CopyTree(other.m_rep)) {}

Value& Value::operator=(const Value& other) {
  *this = Value(other);
  return *this;
}

void Value::ReleaseMemory() noexcept {
  detail::ReleaseTree(m_rep);
}

bool Value::Parse(const std::string& text) {
  *this = Value();
  return detail::ReadDocument(text, m_rep);
}

std::string Value::ToStyledString() const {
  return detail::WriteStyled(m_rep);
}

std::string Value::JsonValueToString() const {
  if (IsString()) {
    return AsString();
  }
  return IsNull() ? std::string() : detail::WriteCompact(m_rep);
}

bool Value::AsBool(bool otherwise) const noexcept {
  return IsBool() ? m_rep.unsignedInteger != 0 : otherwise;
}

std::int64_t Value::AsInt64(std::int64_t otherwise) const noexcept {
  std::int64_t integer = 0;
  if (IsInteger()) {
    return m_rep.integer;
  }
  return IsDouble() && detail::ToInteger(m_rep.number, integer) ? integer : otherwise;
}

std::uint64_t Value::AsUint64(std::uint64_t otherwise) const noexcept {
  std::uint64_t integer = 0;
  if (IsUnsigned()) {
    return m_rep.unsignedInteger;
  }
  return IsDouble() && detail::ToInteger(m_rep.number, integer) ? integer : otherwise;
}

double Value::AsDouble(double otherwise) const noexcept {
  switch (m_rep.kind) {
    case Kind::kInteger:
      return static_cast<double>(m_rep.integer);
    case Kind::kUnsigned:
      return static_cast<double>(m_rep.unsignedInteger);
    case Kind::kDouble:
      return m_rep.number;
    default:
      return otherwise;
  }
}

std::string Value::AsString(const std::string& otherwise) const {
  return IsString() ? std::string(detail::TextOf(m_rep)) : otherwise;
}

const char* Value::StringData() const noexcept {
  return IsString() ? detail::TextOf(m_rep).data() : nullptr;
}

std::size_t Value::StringSize() const noexcept {
  return IsString() ? detail::TextOf(m_rep).size() : 0;
}

std::size_t Value::Size() const noexcept {
  if (!detail::IsContainer(m_rep)) {
    return 0;
  }
  return detail::SlotCount(m_rep) / (IsObject() ? 2 : 1);
}

Value& Value::operator[](const std::string& key) {
  if (IsNull()) {
    // Null stays null when adding the member throws.
    Value object = Object();
    Rep* const slot = detail::AddMember(object.m_rep, key);
    *this = std::move(object);
    return *AsValue(slot);
  }
  if (!IsObject()) {
    return Nobody();
  }
  Rep* const found = detail::FindMember(m_rep, key);
  return *AsValue(found != nullptr ? found : detail::AddMember(m_rep, key));
}

const Value& Value::operator[](const std::string& key) const noexcept {
  const Value* const found = Find(key);
  return found == nullptr ? kNull : *found;
}

Value* Value::Find(const std::string& key) noexcept {
  return IsObject() ? AsValue(detail::FindMember(m_rep, key)) : nullptr;
}

const Value* Value::Find(const std::string& key) const noexcept {
  return IsObject() ? AsValue(detail::FindMember(m_rep, key)) : nullptr;
}

Value& Value::At(std::size_t index) noexcept {
  return IsArray() && index < Size() ? *AsValue(m_rep.block->Slots() + index) : Nobody();
}

const Value& Value::At(std::size_t index) const noexcept {
  return IsArray() && index < Size() ? *AsValue(m_rep.block->Slots() + index) : kNull;
}

void Value::AddJsonValue(const std::string& key, const std::string& text) {
  // On other kinds operator[] would keep the text, with nobody to own it.
  if (IsNull() || IsObject()) {
    Value value(text);
    (*this)[key] = std::move(value);
  }
}

bool Value::Append(Value element) {
  if (IsNull()) {
    Value array = Array();
    detail::AppendElement(array.m_rep, element.m_rep);
    *this = std::move(array);
    return true;
  }
  if (!IsArray()) {
    return false;
  }
  detail::AppendElement(m_rep, element.m_rep);
  return true;
}

bool Value::Remove(const std::string& key) noexcept {
  return IsObject() && detail::RemoveMember(m_rep, key);
}

bool Value::RemoveAt(std::size_t index) noexcept {
  if (!IsArray() || index >= Size()) {
    return false;
  }
  Value* const first = AsValue(m_rep.block->Slots());
  std::move(first + index + 1, first + Size(), first + index);
  first[Size() - 1] = Value();
  --m_rep.block->size;
  return true;
}

ElementRange<Value> Value::Elements() noexcept {
  if (!IsArray() || Empty()) {
    return ElementRange<Value>(nullptr, nullptr);
  }
  Value* const first = AsValue(m_rep.block->Slots());
  return ElementRange<Value>(first, first + Size());
}

ElementRange<const Value> Value::Elements() const noexcept {
  if (!IsArray() || Empty()) {
    return ElementRange<const Value>(nullptr, nullptr);
  }
  const Value* const first = AsValue(m_rep.block->Slots());
  return ElementRange<const Value>(first, first + Size());
}

MemberRange<Member> Value::Members() noexcept {
  return MemberRange<Member>(Access::FirstMember<Member>(m_rep));
}

MemberRange<const Member> Value::Members() const noexcept {
  return MemberRange<const Member>(Access::FirstMember<const Member>(m_rep));
}

bool Value::Equals(const Value& other) const {
  return detail::EqualTrees(m_rep, other.m_rep);
}

}  // namespace LumJson
