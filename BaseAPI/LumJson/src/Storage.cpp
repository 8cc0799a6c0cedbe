// Texts, blocks and the tree operations. Trees may be nested to any depth, so none of these
// recurses.
#include "Storage.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <utility>
#include <vector>

namespace LumJson::detail {

namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);
constexpr std::size_t kMaxSlots = UINT32_MAX - 1;  // even: members take two
constexpr std::size_t kFirstSlots = 8;             // of a container that grows from nothing

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
      : bytes_(bytes), isShort_(bytes.size() <= Rep::kMaxShortText) {
    if (isShort_) {
      LoadShort(MakeText(bytes));
    }
  }
  // The name in a slot, which must outlive this.
  explicit Name(const Rep& slot) : isShort_(slot.kind == Kind::kShortText) {
    if (isShort_) {
      LoadShort(slot);
    } else {
      bytes_ = TextOf(slot);
    }
  }

  bool Is(const Rep& slot) const {
    if (isShort_) {
      return LoadWord(&slot) == low_ &&
             LoadWord(reinterpret_cast<const char*>(&slot) + kWord) == high_;
    }
    return slot.kind == Kind::kLongText && TextOf(slot) == bytes_;
  }

  std::uint64_t Hash() const {
    if (isShort_) {
      return FoldProduct(low_ ^ kSeed.low, high_ ^ kSeed.high);
    }
    std::uint64_t hash = kSeed.low ^ bytes_.size();
    std::string_view rest = bytes_;
    while (rest.size() >= kWord) {
      hash = FoldProduct(hash ^ LoadWord(rest.data()), kSeed.high);
      rest.remove_prefix(kWord);
    }
    std::uint64_t tail = 0;
    std::memcpy(&tail, rest.data(), rest.size());
    return FoldProduct(hash ^ tail, kSeed.high);
  }

  // A few bits that tell most names of a small object apart, for less than a hash costs.
  std::size_t Fingerprint(int bits) const {
    const std::uint64_t first = isShort_ ? low_ : LoadWord(bytes_.data());
    const std::uint64_t last =
        isShort_ ? high_ : LoadWord(bytes_.data() + bytes_.size() - kWord) ^ bytes_.size();
    return ((first * 0x9E3779B97F4A7C15U) ^ (last * 0xC2B2AE3D27D4EB4FU)) >> (64 - bits);
  }

 private:
  void LoadShort(const Rep& slot) {
    low_ = LoadWord(&slot);
    high_ = LoadWord(reinterpret_cast<const char*>(&slot) + kWord);
  }

  std::string_view bytes_;  // unused for short names
  std::uint64_t low_ = 0;
  std::uint64_t high_ = 0;
  bool isShort_;
};

// What the last two bytes of a short text say.
Words ShortTextMark(std::size_t size) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return MakeWords(0, Kind::kShortText) | Words{0, size << 48};
#else
  return MakeWords(0, Kind::kShortText) | Words{0, size << 8};
#endif
}

Rep Null() {
  return Rep();
}

Rep Container(Kind kind, Block* block) {
  Rep rep = Rep();
  rep.kind = kind;
  rep.block = block;
  return rep;
}

Text* NewText(std::string_view bytes) {
  if (bytes.size() > SIZE_MAX / 2) {
    throw std::bad_alloc();
  }
  void* const memory = ::operator new(sizeof(Text) + bytes.size() + kWord);
  Text* const text = new (memory) Text{bytes.size()};
  std::memcpy(text->Bytes(), bytes.data(), bytes.size());
  std::memset(text->Bytes() + bytes.size(), 0, kWord);
  return text;
}

void FreeText(Text* text) noexcept {
  ::operator delete(text);
}
void FreeBlock(Block* block) noexcept {
  ::operator delete(block);
}

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
  if (object.block == nullptr) {
    return nullptr;
  }
  const Growth* const growth = object.block->growth;
  if (growth != nullptr && growth->index != nullptr) {
    return *IndexPlace(*growth, name);
  }
  for (Block* block = object.block; block != nullptr; block = block != object.block ? block->next
                                                              : growth == nullptr   ? nullptr
                                                                                  : growth->next) {
    for (Rep* slot = block->Slots(); slot != block->Slots() + block->size; slot += 2) {
      if (name.Is(*slot)) {
        return slot;
      }
    }
  }
  return nullptr;
}

// False when the names of `count` members certainly differ, which is almost always so.
bool MayHaveDuplicates(const Rep* slots, std::size_t count) {
  constexpr int kBits = 9;
  std::uint64_t seen[(1U << kBits) / 64] = {};
  for (const Rep* name = slots; name != slots + 2 * count; name += 2) {
    const std::size_t place = Name(*name).Fingerprint(kBits);
    const std::uint64_t bit = std::uint64_t{1} << (place % 64);
    if ((seen[place / 64] & bit) != 0) {
      return true;
    }
    seen[place / 64] |= bit;
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
  std::fill(slots + 2 * kept, slots + 2 * count, Null());
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

// While a container waits to be copied, its slot in the copy holds this instead of a value.
struct Waiting {
  const Rep* source;
  Rep* next;
};
static_assert(sizeof(Waiting) <= sizeof(Rep), "the slot is all the memory there is");

Waiting LoadWaiting(const Rep* slot) {
  Waiting waiting;
  std::memcpy(&waiting, slot, sizeof(waiting));
  return waiting;
}

void StoreWaiting(Rep* slot, const Waiting& waiting) {
  std::memcpy(static_cast<void*>(slot), &waiting, sizeof(waiting));
}

// Copies one array or object into `target`. Containers in it are put before `first` in the list of
// those that wait. Every slot that counts is either a value or in the list, also after an
// exception.
void CopyContainer(const Rep& source, Rep& target, Rep*& first) {
  const std::size_t slots = SlotCount(source);
  target = Container(source.kind, nullptr);
  if (slots == 0) {
    return;
  }
  Block* const block = NewBlock(slots);  // one, however many the source has
  target.block = block;
  for (SlotCursor from(source); !from.AtEnd(); from.Advance(1)) {
    const Rep& value = *from.Slot();
    Rep* const slot = block->Slots() + block->size;
    if (value.kind == Kind::kLongText) {
      *slot = MakeText(TextOf(value));
    } else if (IsContainer(value) && value.block != nullptr) {
      StoreWaiting(slot, Waiting{&value, first});
      first = slot;
    } else {
      *slot = value;
    }
    ++block->size;
  }
  if (source.kind == Kind::kObject && slots > 2 * kIndexedSize) {
    auto growth = std::make_unique<Growth>();
    MakeIndex(*growth, slots / 2);
    growth->size = slots;
    growth->last = block;
    block->growth = growth.release();
    FillIndex(block);
  }
}

bool EqualNumbers(const Rep& a, const Rep& b) {
  if (a.kind == b.kind) {
    return a.kind == Kind::kDouble ? a.number == b.number : a.unsignedInteger == b.unsignedInteger;
  }
  if (a.kind == Kind::kDouble) {
    return EqualNumbers(b, a);
  }
  if (b.kind != Kind::kDouble) {
    return false;
  }
  std::int64_t integer = 0;
  std::uint64_t unsignedInteger = 0;
  return a.kind == Kind::kInteger
             ? ToInteger(b.number, integer) && integer == a.integer
             : ToInteger(b.number, unsignedInteger) && unsignedInteger == a.unsignedInteger;
}

bool IsNumber(Kind kind) {
  return kind >= Kind::kInteger && kind <= Kind::kDouble;
}
bool IsText(Kind kind) {
  return kind == Kind::kShortText || kind == Kind::kLongText;
}

// Two values of which not both are containers with something in them.
bool EqualLeaves(const Rep& a, const Rep& b) {
  if (IsNumber(a.kind) && IsNumber(b.kind)) {
    return EqualNumbers(a, b);
  }
  if (IsText(a.kind) && IsText(b.kind)) {
    return TextOf(a) == TextOf(b);
  }
  if (a.kind != b.kind) {
    return false;
  }
  return IsContainer(a)          ? SlotCount(a) == SlotCount(b)
         : a.kind == Kind::kBool ? a.unsignedInteger == b.unsignedInteger
                                 : true;
}

}  // namespace

bool ToInteger(double number, std::int64_t& integer) {
  // 2^63 is a double, INT64_MAX is not.
  if (!(number >= -0x1p63 && number < 0x1p63)) {
    return false;
  }
  integer = static_cast<std::int64_t>(number);
  return static_cast<double>(integer) == number;
}

bool ToInteger(double number, std::uint64_t& integer) {
  if (!(number >= 0 && number < 0x1p64)) {
    return false;
  }
  integer = static_cast<std::uint64_t>(number);
  return static_cast<double>(integer) == number;
}

Rep MakeText(std::string_view bytes) {
  Rep rep = Rep();
  if (bytes.size() <= Rep::kMaxShortText) {
    std::memcpy(static_cast<void*>(&rep), bytes.data(), bytes.size());
    rep.shortTextSize = static_cast<unsigned char>(bytes.size());
    rep.kind = Kind::kShortText;
  } else {
    rep.text = NewText(bytes);
    rep.kind = Kind::kLongText;
  }
  return rep;
}

Words MakeTextWords(std::string_view bytes, const char* readableEnd) {
  const std::size_t size = bytes.size();
  if (size > Rep::kMaxShortText) {
    return MakeWords(reinterpret_cast<std::uintptr_t>(NewText(bytes)), Kind::kLongText);
  }
  if (readableEnd - bytes.data() < static_cast<std::ptrdiff_t>(sizeof(Rep))) {
    const Rep text = MakeText(bytes);
    return LoadWords(&text);
  }
  // Sixteen bytes at once, whatever the size: cheaper than to branch on it.
  static constexpr unsigned char kMask[2 * sizeof(Rep)] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                                           0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                                           0xFF, 0xFF, 0xFF, 0xFF};
  Words words;
  Words mask;
  std::memcpy(&words, bytes.data(), sizeof(words));
  std::memcpy(&mask, kMask + sizeof(Rep) - size, sizeof(mask));
  return (words & mask) | ShortTextMark(size);
}

Block* NewBlock(std::size_t capacity) {
  if (capacity > kMaxSlots) {
    throw std::bad_alloc();
  }
  void* const memory = ::operator new(sizeof(Block) + capacity * sizeof(Rep));
  return new (memory) Block{0, static_cast<std::uint32_t>(capacity), {nullptr}};
}

Block* NewFilledBlock(const Rep* slots, std::size_t count) {
  Block* const block = NewBlock(count);
  // Not by memcpy, whose wider loads would have to wait for the stores of the last slots.
  Rep* const to = block->Slots();
  for (std::size_t i = 0; i < count; ++i) {
    StoreWords(to + i, LoadWords(slots + i));
  }
  block->size = static_cast<std::uint32_t>(count);
  return block;
}

void ReleaseTree(const Rep& rep) noexcept {
  Block* waiting = nullptr;
  const auto release = [&waiting](const Rep& owner) {
    if (owner.kind == Kind::kLongText) {
      FreeText(owner.text);
      return;
    }
    Block* const first = owner.block;
    if (first == nullptr) {
      return;
    }
    Growth* const growth = first->growth;
    Block* further = growth == nullptr ? nullptr : growth->next;
    delete growth;
    first->next = waiting;
    waiting = first;
    while (further != nullptr) {
      Block* const block = further;
      further = block->next;
      block->next = waiting;
      waiting = block;
    }
  };
  if (OwnsMemory(rep)) {
    release(rep);
  }
  while (waiting != nullptr) {
    Block* const block = waiting;
    waiting = block->next;
    const Rep* const end = block->Slots() + block->size;
    for (const Rep* slot = block->Slots(); slot != end; ++slot) {
      if (OwnsMemory(*slot)) {
        release(*slot);
      }
    }
    FreeBlock(block);
  }
}

Rep CopyTree(const Rep& source) {
  if (source.kind == Kind::kLongText) {
    return MakeText(TextOf(source));
  }
  if (!IsContainer(source)) {
    return source;
  }
  Rep root = Null();
  Rep* first = nullptr;
  try {
    CopyContainer(source, root, first);
    while (first != nullptr) {
      Rep* const slot = first;
      const Waiting waiting = LoadWaiting(slot);
      first = waiting.next;
      CopyContainer(*waiting.source, *slot, first);
    }
  } catch (...) {
    while (first != nullptr) {
      Rep* const next = LoadWaiting(first).next;
      *first = Null();
      first = next;
    }
    ReleaseTree(root);
    throw;
  }
  return root;
}

bool EqualTrees(const Rep& a, const Rep& b) {
  std::vector<std::pair<const Rep*, const Rep*>> waiting;
  const auto differ = [&waiting](const Rep& left, const Rep& right) {
    if (IsContainer(left) && left.kind == right.kind && left.block != nullptr &&
        right.block != nullptr) {
      waiting.emplace_back(&left, &right);
      return false;
    }
    return !EqualLeaves(left, right);
  };
  if (differ(a, b)) {
    return false;
  }
  while (!waiting.empty()) {
    const Rep& left = *waiting.back().first;
    const Rep& right = *waiting.back().second;
    waiting.pop_back();
    if (SlotCount(left) != SlotCount(right)) {
      return false;
    }
    SlotCursor other(right);
    for (SlotCursor slot(left); !slot.AtEnd();) {
      if (left.kind == Kind::kArray) {
        if (differ(*slot.Slot(), *other.Slot())) {
          return false;
        }
        slot.Advance(1);
        other.Advance(1);
        continue;
      }
      // Equal objects mostly have the same order, too.
      const Name name(*slot.Slot());
      const Rep* const found = name.Is(*other.Slot()) ? other.Slot() : FindName(right, name);
      if (found == nullptr || differ(slot.Slot()[1], found[1])) {
        return false;
      }
      slot.Advance(2);
      other.Advance(2);
    }
  }
  return true;
}

std::size_t SlotCount(const Rep& container) {
  if (container.block == nullptr) {
    return 0;
  }
  const Growth* const growth = container.block->growth;
  return growth == nullptr ? container.block->size : growth->size;
}

void AppendElement(Rep& array, Rep& element) {
  Block* block = array.block;
  if (block == nullptr || block->size == block->capacity) {
    const std::size_t size = block == nullptr ? 0 : block->size;
    if (size == kMaxSlots) {
      throw std::bad_alloc();
    }
    block = NewBlock(size == 0 ? kFirstSlots / 2 : std::min(2 * size, kMaxSlots));
    if (size != 0) {
      std::memcpy(static_cast<void*>(block->Slots()), array.block->Slots(), size * sizeof(Rep));
      block->size = static_cast<std::uint32_t>(size);
      FreeBlock(array.block);
    }
    array.block = block;
  }
  block->Slots()[block->size++] = element;
  element = Null();
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
  if (needsIndex && (growth->index == nullptr || size + 2 > growth->mask)) {
    MakeIndex(*growth, size);  // for twice the members
    FillIndex(first);
  }
  if (last->size == last->capacity) {
    Block* const block = NewBlock(std::min(std::max(size, kFirstSlots), kMaxSlots));
    (last == first ? growth->next : last->next) = block;
    growth->last = block;
    last = block;
  }

  Rep* const slot = last->Slots() + last->size;
  slot[0] = std::exchange(text.rep, Null());
  slot[1] = Null();
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

Words MakeObject(Rep* slots, std::size_t count) {
  Block* block = nullptr;
  if (count > kIndexedSize) {
    block = NewIndexedBlock(slots, count);
  } else if (count != 0) {
    const std::size_t kept = MayHaveDuplicates(slots, count) ? DropDuplicates(slots, count) : count;
    block = NewFilledBlock(slots, 2 * kept);
  }
  return MakeWords(reinterpret_cast<std::uintptr_t>(block), Kind::kObject);
}

SlotCursor::SlotCursor(const Rep& container) : left_(SlotCount(container)) {
  if (left_ != 0) {
    const Block& first = *container.block;
    slot_ = first.Slots();
    end_ = slot_ + first.size;
    next_ = first.growth == nullptr ? nullptr : first.growth->next;
    if (slot_ == end_) {
      EnterBlock();
    }
  }
}

void SlotCursor::EnterBlock() {
  while (slot_ == end_ && next_ != nullptr) {
    slot_ = next_->Slots();
    end_ = slot_ + next_->size;
    next_ = next_->next;
  }
}

}  // namespace LumJson::detail
