// JSON values: reading (RFC 8259), building, looking up and writing.
#ifndef LUM_JSON_H
#define LUM_JSON_H

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <type_traits>

#if defined(__GNUC__)
#define LUM_JSON_API __attribute__((__visibility__("default")))
#else
#define LUM_JSON_API
#endif

namespace LumJson {

class Member;

// What a value is made of; of no interest to callers.
namespace detail {

struct Access;
struct Block;
struct Text;

// In this order: what IsString() and ownership ask for are ranges.
enum class Kind : unsigned char {
  kNull,
  kBool,
  kInteger,   // fits int64_t
  kUnsigned,  // above INT64_MAX
  kDouble,
  kShortText,
  kLongText,  // from here on the value owns memory
  kArray,
  kObject
};

// Sixteen bytes. A text of up to kMaxShortText bytes stands in them from the first byte on, unused
// bytes being zero; anything larger hangs on a pointer.
struct Rep {
  enum { kMaxShortText = 14 };
  union {
    std::uint64_t unsignedInteger;  // kUnsigned; 0 or 1 for kBool
    std::int64_t integer;
    double number;
    Text* text;    // kLongText; never null
    Block* block;  // kArray, kObject; null when empty
  };
  char moreText[6];
  unsigned char shortTextSize;
  Kind kind;
};

}  // namespace detail

template <typename M>
class MemberRange;

// What Value::Elements() yields: the elements of an array, first to last.
template <typename V>
class ElementRange {
 public:
  ElementRange(V* first, V* last) : m_first(first), m_last(last) {}
  V* begin() const { return m_first; }
  V* end() const { return m_last; }

 private:
  V* m_first;
  V* m_last;
};

// One JSON value: null, a boolean, a number, a string, an array or an object. It owns everything
// in it: copies are deep, moves cost a few instructions and leave null behind.
//
//   LumJson::Value report;
//   report["id"] = 17;
//   report["errors"].Append("no route");
//   std::string text = report.ToStyledString();
//
//   LumJson::Value reply;
//   if (reply.Parse(text)) {
//     const LumJson::Value& read = reply;  // looking up in a constant adds nothing
//     for (const LumJson::Value& error : read["errors"].Elements()) {
//       std::puts(error.AsString("?").c_str());
//     }
//   }
//
// Distinct values may be used by distinct threads at once, and one value may be read by several
// threads as long as none changes it; the non-constant operator[] counts as a change.
//
// Members of an object keep the order in which they were added, and each name stands in an object
// once. References to members stay good when others are added, so a["x"] = a["y"] is safe, and end
// when one is removed. References to elements of an array end when the array changes its size.
//
// Values may be nested to any depth by building them: copying, comparing, writing and destroying
// them needs no more stack for it. Reading stops at kMaxDepth.
//
// No operation throws but std::bad_alloc, and a value whose operation threw is unchanged unless
// the operation's comment says otherwise.
class LUM_JSON_API Value {
 public:
  // Arrays and objects nested deeper than this many levels are not read.
  enum { kMaxDepth = 512 };

  // Null.
  Value() noexcept : m_rep() {}
  Value(std::nullptr_t) noexcept : m_rep() {}

  // A boolean. From bool alone: nothing else, pointers least of all, turns into one silently.
  template <typename Bool,
            typename = typename std::enable_if<std::is_same<Bool, bool>::value>::type>
  Value(Bool boolean) noexcept : m_rep() {
    m_rep.kind = detail::Kind::kBool;
    m_rep.unsignedInteger = boolean ? 1 : 0;
  }

  // An integer; smaller types arrive here by promotion. It keeps all 64 bits.
  Value(int number) noexcept : m_rep() { SetInteger(number); }
  Value(long number) noexcept : m_rep() { SetInteger(number); }
  Value(long long number) noexcept : m_rep() { SetInteger(number); }
  Value(unsigned int number) noexcept : m_rep() { SetInteger(number); }
  Value(unsigned long number) noexcept : m_rep() { SetUnsigned(number); }
  Value(unsigned long long number) noexcept : m_rep() { SetUnsigned(number); }

  // A double, also when it has no fraction. NaN and the infinities are held, but JSON has no form
  // for them: they are written as null.
  Value(double number) noexcept : m_rep() {
    m_rep.kind = detail::Kind::kDouble;
    m_rep.number = number;
  }

  // A string of any bytes, zero bytes included where the size is known. It should be UTF-8; what is
  // not is kept as it is and replaced when it is written. A null pointer makes null.
  Value(const char* text);
  Value(const std::string& text);
  explicit Value(const char* text, std::size_t size);

  // An empty array and an empty object.
  static Value Array() noexcept;
  static Value Object() noexcept;

  // A copy shares nothing with its original and takes one allocation for each array, object and
  // text of more than detail::Rep::kMaxShortText bytes. A part may be assigned to its whole and a
  // whole to its part.
  Value(const Value& other);
  Value(Value&& other) noexcept : m_rep(other.m_rep) { other.m_rep = detail::Rep(); }
  Value& operator=(const Value& other);
  Value& operator=(Value&& other) noexcept {
    // By way of a third value: `other` may be a part of *this.
    const detail::Rep taken = other.m_rep;
    other.m_rep = detail::Rep();
    Release();
    m_rep = taken;
    return *this;
  }
  ~Value() { Release(); }

  // Replaces *this by the document in `text` and returns true, or by null and returns false when
  // it is not one. A document is what RFC 8259 calls a JSON text: one value of any kind with
  // nothing but blanks around it, in UTF-8 without a byte order mark. Beyond that:
  //  - of members with the same name the last one counts, at the place of the first;
  //  - integers that fit int64_t or uint64_t are kept exactly, all other numbers (and -0) become
  //    the nearest double; one too large for a double is refused, one too small becomes zero,
  //    however long the exponent is that says so;
  //  - nesting deeper than kMaxDepth is refused;
  //  - escaped surrogates that form no pair are refused; \u0000 is a character like any other.
  // *this is null after std::bad_alloc.
  bool Parse(const std::string& text);

  // The document with each element and member on a line of its own, four blanks of indentation a
  // level, a colon and a blank after each name, empty containers as [] and {}, and one newline at
  // the end. Containers deeper than kMaxDepth levels stand on one line.
  //
  // Doubles are written with the fewest digits that read back as the same double, and always with a
  // point or an exponent. Strings are written as UTF-8: only quotes, backslashes and the control
  // characters below U+0020 are escaped, and U+FFFD stands for each ill-formed sequence (as The
  // Unicode Standard recommends in 3.9, one for each maximal subpart). So the text is always a
  // valid document.
  std::string ToStyledString() const;

  // A string's characters as they are, "" for null, and the document without any blanks for
  // everything else, by the rules of ToStyledString().
  std::string JsonValueToString() const;

  bool IsNull() const noexcept { return m_rep.kind == detail::Kind::kNull; }
  bool IsBool() const noexcept { return m_rep.kind == detail::Kind::kBool; }
  // Any number.
  bool IsNumber() const noexcept {
    return m_rep.kind >= detail::Kind::kInteger && m_rep.kind <= detail::Kind::kDouble;
  }
  // A number that is held as an integer and fits int64_t, or uint64_t.
  bool IsInteger() const noexcept { return m_rep.kind == detail::Kind::kInteger; }
  bool IsUnsigned() const noexcept {
    return m_rep.kind == detail::Kind::kUnsigned ||
           (m_rep.kind == detail::Kind::kInteger && m_rep.integer >= 0);
  }
  // A number that is held as a double: written with a point or an exponent, or too large otherwise.
  bool IsDouble() const noexcept { return m_rep.kind == detail::Kind::kDouble; }
  bool IsString() const noexcept {
    return m_rep.kind == detail::Kind::kShortText || m_rep.kind == detail::Kind::kLongText;
  }
  bool IsArray() const noexcept { return m_rep.kind == detail::Kind::kArray; }
  bool IsObject() const noexcept { return m_rep.kind == detail::Kind::kObject; }

  // The value as a C++ type, or `otherwise` when it is of another kind. A number that the type
  // cannot hold exactly counts as another kind for the integers (3.0 is 3, 3.5 is not);
  // AsDouble() takes any number and rounds.
  bool AsBool(bool otherwise = false) const noexcept;
  std::int64_t AsInt64(std::int64_t otherwise = 0) const noexcept;
  std::uint64_t AsUint64(std::uint64_t otherwise = 0) const noexcept;
  double AsDouble(double otherwise = 0.0) const noexcept;
  std::string AsString(const std::string& otherwise = std::string()) const;

  // A string's bytes without a copy, not terminated by a zero; valid until *this changes. A null
  // pointer and 0 when it is no string.
  const char* StringData() const noexcept;
  std::size_t StringSize() const noexcept;

  // The number of elements or members; 0 when *this is neither array nor object.
  std::size_t Size() const noexcept;
  bool Empty() const noexcept { return Size() == 0; }

  // The member `key`. Null becomes an object, and a missing member is added to it as null. On any
  // other kind *this does not change, and the result is a null that belongs to nobody: it may be
  // assigned to without effect, until the thread's next such access.
  Value& operator[](const std::string& key);
  // The member `key`, or a null when there is none. Never adds anything.
  const Value& operator[](const std::string& key) const noexcept;
  // Not an index (an integer 0 would pass for a null pointer): elements are reached through At().
  Value& operator[](int) = delete;
  const Value& operator[](int) const = delete;

  // The member `key`, or a null pointer when there is none or *this is no object.
  Value* Find(const std::string& key) noexcept;
  const Value* Find(const std::string& key) const noexcept;
  bool Has(const std::string& key) const noexcept { return Find(key) != nullptr; }

  // The element `index`, counted from 0. Where there is none the result is a null as operator[]
  // yields it.
  Value& At(std::size_t index) noexcept;
  const Value& At(std::size_t index) const noexcept;

  // Sets the member `key` to the string `text`, added at the end or replaced in its place. Null
  // becomes an object; on any other kind nothing happens.
  void AddJsonValue(const std::string& key, const std::string& text);

  // Adds an element at the end. Null becomes an array; on any other kind nothing happens and the
  // result is false.
  bool Append(Value element);

  // Removes a member or an element, in time linear in Size(); the others keep their order. False
  // when there is none.
  bool Remove(const std::string& key) noexcept;
  bool RemoveAt(std::size_t index) noexcept;

  // The elements of an array and the members of an object, in order, for a range-based for; nothing
  // for any other kind. Neither may be added or removed meanwhile.
  ElementRange<Value> Elements() noexcept;
  ElementRange<const Value> Elements() const noexcept;
  MemberRange<Member> Members() noexcept;
  MemberRange<const Member> Members() const noexcept;

  // Equal are values of one kind with equal contents: numbers by what they stand for (1 equals
  // 1.0; NaN equals nothing), strings by their bytes, arrays element by element, objects by names
  // and members in any order.
  friend bool operator==(const Value& a, const Value& b) { return a.Equals(b); }
  friend bool operator!=(const Value& a, const Value& b) { return !a.Equals(b); }

 private:
  friend struct detail::Access;

  void SetInteger(std::int64_t number) noexcept {
    m_rep.kind = detail::Kind::kInteger;
    m_rep.integer = number;
  }
  void SetUnsigned(std::uint64_t number) noexcept {
    m_rep.kind = number > INT64_MAX ? detail::Kind::kUnsigned : detail::Kind::kInteger;
    m_rep.unsignedInteger = number;
  }
  // What follows either ends the value's life or gives it another content.
  void Release() noexcept {
    if (m_rep.kind >= detail::Kind::kLongText) {
      ReleaseMemory();
    }
  }
  void ReleaseMemory() noexcept;
  bool Equals(const Value& other) const;

  detail::Rep m_rep;
};

// One member of an object: a name, which is fixed, and a value. It lives in its object; see Value
// for the use by several threads.
class LUM_JSON_API Member {
 public:
  Member(const Member&) = delete;
  Member& operator=(const Member&) = delete;

  std::string Name() const { return std::string(NameData(), NameSize()); }
  // The name's bytes without a copy, not terminated by a zero; valid as long as the member.
  const char* NameData() const noexcept { return m_name.StringData(); }
  std::size_t NameSize() const noexcept { return m_name.StringSize(); }

  Value& Item() noexcept { return m_item; }
  const Value& Item() const noexcept { return m_item; }

 private:
  Member() = delete;

  Value m_name;
  Value m_item;
};

// Goes through the members of one object, forwards. It ends when a member is added or removed.
template <typename M>
class MemberIterator {
 public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = M;
  using difference_type = std::ptrdiff_t;
  using pointer = M*;
  using reference = M&;

  MemberIterator() = default;

  M& operator*() const { return *m_current; }
  M* operator->() const { return m_current; }
  MemberIterator& operator++() {
    if (++m_current == m_end) {
      EnterBlock();
    }
    return *this;
  }
  MemberIterator operator++(int) {
    MemberIterator before = *this;
    ++*this;
    return before;
  }
  friend bool operator==(const MemberIterator& a, const MemberIterator& b) {
    return a.m_current == b.m_current;
  }
  friend bool operator!=(const MemberIterator& a, const MemberIterator& b) {
    return a.m_current != b.m_current;
  }

 private:
  friend struct detail::Access;

  // Goes to the first member of the next block that has any.
  LUM_JSON_API void EnterBlock() noexcept;

  M* m_current = nullptr;
  M* m_end = nullptr;                      // of the block that m_current stands in
  const detail::Block* m_block = nullptr;  // the one behind it
};

// What Value::Members() yields: the members of an object in their order.
template <typename M>
class MemberRange {
 public:
  explicit MemberRange(MemberIterator<M> first) : m_first(first) {}
  MemberIterator<M> begin() const { return m_first; }
  MemberIterator<M> end() const { return MemberIterator<M>(); }

 private:
  MemberIterator<M> m_first;
};

extern template void MemberIterator<Member>::EnterBlock() noexcept;
extern template void MemberIterator<const Member>::EnterBlock() noexcept;

}  // namespace LumJson

#endif  // LUM_JSON_H
