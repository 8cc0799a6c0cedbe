// Members of objects: finding, adding and removing them, and the index of their names.
#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <utility>

#include "Storage.h"

namespace LumJson::detail {

namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);
constexpr std::size_t kFirstSlots = 8;  // of an object that grows from nothing

// Objects of more members than this find them by hash. Below, comparing one name after the other
// (two words each) is as fast, and costs no memory.
constexpr std::size_t kIndexedSize = 32;

std::uint64_t LoadWord(const void* from) {
  std::uint64_t word;
  std::memcpy(&word, from, kWord);
  return word;
}

__extension__ using Wide = unsigned __int128;

std::uint64_t FoldProduct(std::uint64_t a, std::uint64_t b) {
  const Wide product = static_cast<Wide>(a) * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

// Spreads what one product leaves together: with some seeds it maps names that are alike to places
// that are.
std::uint64_t Spread(std::uint64_t hash) {
  return FoldProduct(hash, 0x9E3779B97F4A7C15U);
}

// Differs in each process, so that nobody can prepare a document whose names all collide.
struct HashSeed {
  std::uint64_t low;
  std::uint64_t high;

  HashSeed() noexcept : low(0x9E3779B97F4A7C15U), high(0xC2B2AE3D27D4EB4FU) {
    try {
      std::random_device source;
      low ^= static_cast<std::uint64_t>(source()) << 32 | source();
      high ^= static_cast<std::uint64_t>(source()) << 32 | source();
    } catch (const std::exception&) {
      // Without a source of randomness names are still found, only predictably.
      low ^= reinterpret_cast<std::uintptr_t>(this);
    }
  }
};
const HashSeed kSeed;

// A member's name as it is looked for: short ones as the two words that a slot would hold.
class Name {
 public:
  explicit Name(std::string_view bytes)
      : m_bytes(bytes), m_isShort(bytes.size() <= Rep::kMaxShortText) {
    if (m_isShort) {
      LoadShort(MakeText(bytes));
    }
  }
  // The name in a slot, which must outlive this.
  explicit Name(const Rep& slot) : m_isShort(slot.kind == Kind::kShortText) {
    if (m_isShort) {
      LoadShort(slot);
    } else {
      m_bytes = TextOf(slot);
    }
  }

  bool Is(const Rep& slot) const {
    if (m_isShort) {
      return LoadWord(&slot) == m_low &&
             LoadWord(reinterpret_cast<const char*>(&slot) + kWord) == m_high;
    }
    return TextOf(slot) == m_bytes;
  }

  std::uint64_t Hash() const {
    if (m_isShort) {
      return Spread(FoldProduct(m_low ^ kSeed.low, m_high ^ kSeed.high));
    }
    std::uint64_t hash = kSeed.low ^ m_bytes.size();
    std::string_view rest = m_bytes;
    while (rest.size() >= kWord) {
      hash = FoldProduct(hash ^ LoadWord(rest.data()), kSeed.high);
      rest.remove_prefix(kWord);
    }
    std::uint64_t tail = 0;
    std::memcpy(&tail, rest.data(), rest.size());
    return Spread(FoldProduct(hash ^ tail, kSeed.high));
  }

 private:
  void LoadShort(const Rep& slot) {
    m_low = LoadWord(&slot);
    m_high = LoadWord(reinterpret_cast<const char*>(&slot) + kWord);
  }

  std::string_view m_bytes;  // unused for short names
  std::uint64_t m_low = 0;
  std::uint64_t m_high = 0;
  bool m_isShort;
};

// The place in the index where `name` stands, or the empty one where it would.
Rep** IndexPlace(const Growth& growth, const Name& name) {
  std::size_t place = name.Hash() & growth.mask;
  while (growth.index[place] != nullptr && !name.Is(*growth.index[place])) {
    place = (place + 1) & growth.mask;
  }
  return &growth.index[place];
}

// An empty index for `members` names at most half full.
void MakeIndex(Growth& growth, std::size_t members) {
  std::size_t capacity = 4 * kIndexedSize;
  while (capacity < 2 * members) {
    capacity *= 2;
  }
  Rep** const index = new Rep*[capacity]();
  delete[] growth.index;
  growth.index = index;
  growth.mask = capacity - 1;
}

template <typename Function>
void ForEachBlock(Block* first, Function function) {
  function(*first);
  if (first->growth != nullptr) {
    for (Block* block = first->growth->next; block != nullptr; block = block->next) {
      function(*block);
    }
  }
}

// Enters every name into the index, which is empty and large enough.
void FillIndex(Block* first) {
  ForEachBlock(first, [first](Block& block) {
    for (std::size_t i = 0; i < block.size; i += 2) {
      Rep* const slot = block.Slots() + i;
      *IndexPlace(*first->growth, Name(*slot)) = slot;
    }
  });
}

Rep* FindName(const Rep& object, const Name& name) {
  const Growth* const growth = object.block == nullptr ? nullptr : object.block->growth;
  if (growth != nullptr && growth->index != nullptr) {
    return *IndexPlace(*growth, name);
  }
  for (SlotCursor at(object); !at.AtEnd(); at.Advance(2)) {
    if (name.Is(*at.Slot())) {
      return const_cast<Rep*>(at.Slot());
    }
  }
  return nullptr;
}

// False when the names of `count` members certainly differ, which is almost always so.
bool MayHaveDuplicates(const Rep* slots, std::size_t count) {
  std::uint64_t seen[8] = {};  // a bit for each of 512 hashes
  for (const Rep* name = slots; name != slots + 2 * count; name += 2) {
    const std::uint64_t hash = Name(*name).Hash();
    std::uint64_t& word = seen[hash / 64 % 8];
    const std::uint64_t bit = std::uint64_t{1} << (hash % 64);
    if ((word & bit) != 0) {
      return true;
    }
    word |= bit;
  }
  return false;
}

// Keeps one of each name among `count` members, and leaves nulls behind those that are kept.
// Returns how many these are.
std::size_t DropDuplicates(Rep* slots, std::size_t count) noexcept {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < count; ++i) {
    Rep* const member = slots + 2 * i;
    Rep* const end = slots + 2 * kept;
    const Name name(*member);
    Rep* earlier = slots;
    while (earlier != end && !name.Is(*earlier)) {
      earlier += 2;
    }
    if (earlier != end) {
      ReleaseTree(earlier[1]);
      ReleaseTree(member[0]);
      earlier[1] = member[1];
    } else {
      std::copy_n(member, member == end ? 0 : 2, end);
      ++kept;
    }
  }
  std::fill(slots + 2 * kept, slots + 2 * count, Rep());
  return kept;
}

Block* NewIndexedBlock(Rep* slots, std::size_t count) {
  auto growth = std::make_unique<Growth>();
  MakeIndex(*growth, count);
  Block* const block = NewBlock(2 * count);
  for (Rep* member = slots; member != slots + 2 * count; member += 2) {
    Rep** const place = IndexPlace(*growth, Name(member[0]));
    if (*place == nullptr) {
      *place = block->Slots() + block->size;
      (*place)[0] = member[0];
      block->size += 2;
    } else {
      ReleaseTree((*place)[1]);
      ReleaseTree(member[0]);
    }
    (*place)[1] = member[1];
  }
  growth->size = block->size;
  growth->last = block;
  block->growth = growth.release();
  return block;
}

}  // namespace

void IndexMembers(Block* block) {
  if (block->size > 2 * kIndexedSize) {
    auto growth = std::make_unique<Growth>();
    MakeIndex(*growth, block->size / 2);
    growth->size = block->size;
    growth->last = block;
    block->growth = growth.release();
    FillIndex(block);
  }
}

Rep* FindMember(const Rep& object, std::string_view name) {
  Rep* const slot = FindName(object, Name(name));
  return slot == nullptr ? nullptr : slot + 1;
}

Rep* AddMember(Rep& object, std::string_view name) {
  // First everything that may throw; none of it shows before the member stands in its slot.
  struct TextHolder {
    Rep rep;
    ~TextHolder() { ReleaseTree(rep); }
  } text{MakeText(name)};
  if (object.block == nullptr) {
    object.block = NewBlock(kFirstSlots);
  }
  Block* const first = object.block;
  const std::size_t size = SlotCount(object);
  Growth* growth = first->growth;
  Block* last = growth == nullptr ? first : growth->last;
  const bool needsIndex = size / 2 >= kIndexedSize;
  if (growth == nullptr && (last->size == last->capacity || needsIndex)) {
    growth = new Growth();
    growth->size = size;
    growth->last = first;
    first->growth = growth;
  }
  if (needsIndex && size + 2 > growth->mask) {  // 0 where there is none yet
    MakeIndex(*growth, size);                   // for twice the members
    FillIndex(first);
  }
  if (last->size == last->capacity) {
    Block* const block = NewBlock(std::min(std::max(size, kFirstSlots), kMaxSlots));
    (last == first ? growth->next : last->next) = block;
    growth->last = block;
    last = block;
  }

  Rep* const slot = last->Slots() + last->size;
  slot[0] = std::exchange(text.rep, Rep());
  slot[1] = Rep();
  last->size += 2;
  if (growth != nullptr) {
    growth->size += 2;
    if (growth->index != nullptr) {
      *IndexPlace(*growth, Name(slot[0])) = slot;
    }
  }
  return slot + 1;
}

bool RemoveMember(Rep& object, std::string_view name) {
  Rep* const slot = FindName(object, Name(name));
  if (slot == nullptr) {
    return false;
  }
  ReleaseTree(slot[0]);
  ReleaseTree(slot[1]);
  ForEachBlock(object.block, [slot](Block& block) {
    Rep* const end = block.Slots() + block.size;
    if (std::less_equal<>()(block.Slots(), slot) && std::less<>()(slot, end)) {
      std::copy(slot + 2, end, slot);
      block.size -= 2;
    }
  });
  Growth* const growth = object.block->growth;
  if (growth != nullptr) {
    growth->size -= 2;
    if (growth->index != nullptr) {
      std::fill(growth->index, growth->index + growth->mask + 1, nullptr);
      FillIndex(object.block);
    }
  }
  return true;
}

Rep MakeObject(Rep* slots, std::size_t count) {
  Block* block = nullptr;
  if (count > kIndexedSize) {
    block = NewIndexedBlock(slots, count);
  } else if (count != 0) {
    const std::size_t kept = MayHaveDuplicates(slots, count) ? DropDuplicates(slots, count) : count;
    block = NewFilledBlock(slots, 2 * kept);
  }
  return MakeContainer(Kind::kObject, block);
}

}  // namespace LumJson::detail
