// The memory behind a Value: texts, and the blocks that hold elements and members.
#ifndef LUM_JSON_STORAGE_H
#define LUM_JSON_STORAGE_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "LumJson.h"

namespace LumJson::detail {

static_assert(sizeof(Rep) == 16 && sizeof(Value) == 16 && sizeof(Member) == 32,
              "slots of blocks are read as values and as members");

// A long text: the size, the bytes behind it, and a word of zeros. So a whole word of eight bytes
// may be read at any of the bytes.
struct Text {
  std::size_t size;

  char* Bytes() { return reinterpret_cast<char*>(this + 1); }
  const char* Bytes() const { return reinterpret_cast<const char*>(this + 1); }
};

struct Growth;

// Slots for the elements of an array, or for the members of an object, where a name and its value
// take two slots. An array has one block. An object begins with one and gets further ones when it
// grows, because its members must not move.
struct Block {
  std::uint32_t size;      // slots in use
  std::uint32_t capacity;  // slots
  union {
    Growth* growth;  // first block of an object: null until it has a second block or an index
    Block* next;     // further blocks of an object, and blocks that wait to be released
  };

  Rep* Slots() { return reinterpret_cast<Rep*>(this + 1); }
  const Rep* Slots() const { return reinterpret_cast<const Rep*>(this + 1); }
};
static_assert(sizeof(Block) == 16, "slots follow directly");

// What an object has beyond its first block.
struct Growth {
  std::size_t size = 0;   // slots in use in all blocks
  Block* next = nullptr;  // the second block
  Block* last = nullptr;  // the block that takes new members
  Rep** index = nullptr;  // hash table of names by open addressing; null below kIndexedSize
  std::size_t mask = 0;   // its capacity - 1

  Growth() = default;
  Growth(const Growth&) = delete;
  Growth& operator=(const Growth&) = delete;
  ~Growth() { delete[] index; }
};

// Opens a Value to the library's own sources.
struct Access {
  static Rep& Of(Value& value) { return value.m_rep; }
  static const Rep& Of(const Value& value) { return value.m_rep; }
  template <typename M>
  static MemberIterator<M> FirstMember(const Rep& object);
};

inline bool OwnsMemory(const Rep& rep) {
  return rep.kind >= Kind::kLongText;
}
inline bool IsContainer(const Rep& rep) {
  return rep.kind >= Kind::kArray;
}

// False when the integer type has no value that equals `number`.
bool ToInteger(double number, std::int64_t& integer);
bool ToInteger(double number, std::uint64_t& integer);

inline std::string_view TextOf(const Rep& rep) {
  return rep.kind == Kind::kShortText
             ? std::string_view(reinterpret_cast<const char*>(&rep), rep.shortTextSize)
             : std::string_view(rep.text->Bytes(), rep.text->size);
}

inline Rep MakeContainer(Kind kind, Block* block) {
  Rep rep = Rep();
  rep.kind = kind;
  rep.block = block;
  return rep;
}

// All functions that return or add something throw std::bad_alloc, also when a container would get
// more slots than a block can count, and then leave everything as it was.

Rep MakeText(std::string_view bytes);

constexpr std::size_t kMaxSlots = UINT32_MAX - 1;  // of a block
static_assert(kMaxSlots % 2 == 0, "members take two");

// A block with no slot in use, and one that takes over what `count` slots own.
Block* NewBlock(std::size_t capacity);
Block* NewFilledBlock(const Rep* slots, std::size_t count);

// Gives back what `rep` owns, to any depth, without recursion and without memory of its own.
void ReleaseTree(const Rep& rep) noexcept;

// A deep copy, with one allocation for each text and container.
Rep CopyTree(const Rep& source);

bool EqualTrees(const Rep& a, const Rep& b);

// Slots in use in an array or an object of any number of blocks.
std::size_t SlotCount(const Rep& container);

void AppendElement(Rep& array, Rep& element);  // takes over what `element` owns

// The value's slot of member `name`, or null.
Rep* FindMember(const Rep& object, std::string_view name);
// Adds a member that must not exist yet; its value is null. Returns the value's slot.
Rep* AddMember(Rep& object, std::string_view name);
bool RemoveMember(Rep& object, std::string_view name);

// Gives the only block of an object its index, where it has members enough for one.
void IndexMembers(Block* block);

// Makes an object of `count` members, each a name's and a value's slot from `slots` on, and takes
// over what these own. Of equal names the last one counts, at the place of the first. When it
// throws, the slots still own everything that is left.
Rep MakeObject(Rep* slots, std::size_t count);

// Goes through the slots of an array or object, block by block.
class SlotCursor {
 public:
  explicit SlotCursor(const Rep& container);

  bool AtEnd() const { return m_left == 0; }
  std::size_t Left() const { return m_left; }  // slots, with the one it stands at
  const Rep* Slot() const { return m_slot; }
  void Advance(std::size_t slots) {
    m_slot += slots;
    m_left -= slots;
    if (m_slot == m_end) {
      EnterBlock();
    }
  }

 private:
  void EnterBlock();

  const Rep* m_slot = nullptr;
  const Rep* m_end = nullptr;  // of the block that m_slot stands in
  const Block* m_next = nullptr;
  std::size_t m_left = 0;
};

}  // namespace LumJson::detail

#endif  // LUM_JSON_STORAGE_H
