// Texts, blocks and the tree operations. Trees may be nested to any depth, so none of these
// recurses.
#include "Storage.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

namespace LumJson::detail {

namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);
constexpr std::size_t kFirstElements = 4;  // of an array that grows from nothing

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
  target = MakeContainer(source.kind, nullptr);
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
    } else if (IsContainer(value)) {
      StoreWaiting(slot, Waiting{&value, first});
      first = slot;
    } else {
      *slot = value;
    }
    ++block->size;
  }
  if (source.kind == Kind::kObject) {
    IndexMembers(block);
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

// Two values that are not containers of one kind.
bool EqualLeaves(const Rep& a, const Rep& b) {
  if (IsNumber(a.kind) && IsNumber(b.kind)) {
    return EqualNumbers(a, b);
  }
  if (IsText(a.kind) && IsText(b.kind)) {
    return TextOf(a) == TextOf(b);
  }
  return a.kind == b.kind && a.unsignedInteger == b.unsignedInteger;  // 0 in a null
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

Block* NewBlock(std::size_t capacity) {
  if (capacity > kMaxSlots) {
    throw std::bad_alloc();
  }
  void* const memory = ::operator new(sizeof(Block) + capacity * sizeof(Rep));
  return new (memory) Block{0, static_cast<std::uint32_t>(capacity), {nullptr}};
}

Block* NewFilledBlock(const Rep* slots, std::size_t count) {
  Block* const block = NewBlock(count);
  std::copy_n(slots, count, block->Slots());
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
  Rep root = Rep();
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
      *first = Rep();
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
    if (IsContainer(left) && left.kind == right.kind) {
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
      const Rep* const found = FindMember(right, TextOf(*slot.Slot()));
      if (found == nullptr || differ(slot.Slot()[1], *found)) {
        return false;
      }
      slot.Advance(2);
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
    block = NewBlock(size == 0 ? kFirstElements : std::min(2 * size, kMaxSlots));
    if (size != 0) {
      std::memcpy(static_cast<void*>(block->Slots()), array.block->Slots(), size * sizeof(Rep));
      block->size = static_cast<std::uint32_t>(size);
      FreeBlock(array.block);
    }
    array.block = block;
  }
  block->Slots()[block->size++] = element;
  element = Rep();
}

SlotCursor::SlotCursor(const Rep& container) : m_left(SlotCount(container)) {
  if (m_left != 0) {
    const Block& first = *container.block;
    m_slot = first.Slots();
    m_end = m_slot + first.size;
    m_next = first.growth == nullptr ? nullptr : first.growth->next;
    EnterBlock();
  }
}

void SlotCursor::EnterBlock() {
  while (m_slot == m_end && m_next != nullptr) {
    m_slot = m_next->Slots();
    m_end = m_slot + m_next->size;
    m_next = m_next->next;
  }
}

}  // namespace LumJson::detail
