// Writes trees as text. Everything passes through one small buffer that stays in the cache.
#include "Writer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "Storage.h"

namespace LumJson::detail {

namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);
constexpr std::size_t kIndent = 4;

// Bytes of one word that stand for something: 0x01 repeated, 0x80 repeated.
constexpr std::uint64_t kOnes = ~std::uint64_t{0} / 0xFF;
constexpr std::uint64_t kHighs = kOnes << 7;

// Eight bytes, the first one lowest.
std::uint64_t LoadWord(const char* from) {
  std::uint64_t word;
  std::memcpy(&word, from, kWord);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  word = __builtin_bswap64(word);
#endif
  return word;
}

// Marks, in the high bit of each byte, the bytes of a word that cannot be copied as they are:
// control characters, quote, backslash, and everything beyond ASCII. Marks above the lowest one
// may be wrong, the lowest never is.
constexpr std::uint64_t MarkSpecial(std::uint64_t word) {
  const std::uint64_t quote = word ^ (kOnes * '"');
  const std::uint64_t backslash = word ^ (kOnes * '\\');
  return ((word - kOnes * 0x20) | (quote - kOnes) | (backslash - kOnes) | word) & kHighs;
}

// The number of bytes in front of the first marked one.
std::size_t BytesBefore(std::uint64_t marks) {
  return static_cast<std::size_t>(__builtin_ctzll(marks)) / 8;
}

// The length of the well-formed UTF-8 sequence at `bytes`, or 0 and in `skip` the length of the
// maximal subpart of an ill-formed one (The Unicode Standard, 3.9, table 3-7).
std::size_t SequenceLength(const unsigned char* bytes, std::size_t size, std::size_t& skip) {
  const unsigned char lead = bytes[0];
  skip = 1;
  if (lead < 0xC2 || lead > 0xF4) {
    return 0;
  }
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  switch (lead) {
    case 0xE0:  // shorter forms exist
      low = 0xA0;
      break;
    case 0xED:  // surrogates
      high = 0x9F;
      break;
    case 0xF0:  // shorter forms exist
      low = 0x90;
      break;
    case 0xF4:  // above U+10FFFF
      high = 0x8F;
      break;
    default:
      break;
  }
  for (; skip < length; ++skip) {
    if (skip == size || bytes[skip] < low || bytes[skip] > high) {
      return 0;
    }
    low = 0x80;
    high = 0xBF;
  }
  return length;
}

template <bool kStyled>
class Writer {
 public:
  std::string Write(const Rep& root) {
    const Rep* value = &root;
    open_.reserve(IsContainer(root) ? 16 : 0);
    for (;;) {
      if (IsContainer(*value) && value->block != nullptr && Open(*value)) {
        value = Next();
        continue;
      }
      Leaf(*value);
      while (!open_.empty() && open_.back().cursor.AtEnd()) {
        Close();
      }
      if (open_.empty()) {
        break;
      }
      *position_++ = ',';
      value = Next();
    }
    if (kStyled) {
      *position_++ = '\n';
    }
    out_.append(buffer_, position_);
    return std::move(out_);
  }

 private:
  struct OpenContainer {
    SlotCursor cursor;
    bool isObject;
  };

  // No number is longer.
  static constexpr std::size_t kNumberSize = 32;
  // The most that is written without asking for room: the end of one line, with a number, and the
  // indentation of the next.
  static constexpr std::size_t kReserve = 2 * kNumberSize + kIndent * (Value::kMaxDepth + 1);
  static constexpr std::size_t kBufferSize = 16384;

  void MakeRoom() {
    if (position_ > limit_) {
      Flush();
    }
  }

  void Flush() {
    out_.append(buffer_, position_);
    position_ = buffer_;
  }

  // False for an object whose members were all removed again.
  bool Open(const Rep& container) {
    SlotCursor cursor(container);
    if (cursor.AtEnd()) {
      return false;
    }
    const bool isObject = container.kind == Kind::kObject;
    open_.push_back(OpenContainer{cursor, isObject});
    *position_++ = isObject ? '{' : '[';
    return true;
  }

  void Close() {
    const bool isObject = open_.back().isObject;
    const bool onOneLine = open_.size() > Value::kMaxDepth;
    open_.pop_back();
    if (!onOneLine) {
      BeginLine();
    }
    MakeRoom();
    *position_++ = isObject ? '}' : ']';
  }

  // Begins the line of the next element or member and returns the value to go on it.
  const Rep* Next() {
    OpenContainer& container = open_.back();
    if (open_.size() <= Value::kMaxDepth) {
      BeginLine();
    }
    MakeRoom();
    const Rep* slot = container.cursor.Slot();
    if (!container.isObject) {
      container.cursor.Advance(1);
      return slot;
    }
    container.cursor.Advance(2);
    Quoted(slot[0]);
    *position_++ = ':';
    if (kStyled) {
      *position_++ = ' ';
    }
    return slot + 1;
  }

  void BeginLine() {
    if (kStyled) {
      *position_++ = '\n';
      const std::size_t blanks = kIndent * open_.size();
      std::memset(position_, ' ', blanks);
      position_ += blanks;
    }
  }

  void Leaf(const Rep& value) {
    switch (value.kind) {
      case Kind::kNull:
        Literal("null");
        break;
      case Kind::kBool:
        value.boolean ? Literal("true") : Literal("false");
        break;
      case Kind::kInteger:
        position_ = std::to_chars(position_, position_ + kNumberSize, value.integer).ptr;
        break;
      case Kind::kUnsigned:
        position_ = std::to_chars(position_, position_ + kNumberSize, value.unsignedInteger).ptr;
        break;
      case Kind::kDouble:
        Double(value.number);
        break;
      case Kind::kShortText:
      case Kind::kLongText:
        Quoted(value);
        break;
      case Kind::kArray:
        Literal("[]");
        break;
      case Kind::kObject:
        Literal("{}");
        break;
    }
  }

  template <std::size_t kSize>
  void Literal(const char (&text)[kSize]) {
    std::memcpy(position_, text, kSize - 1);
    position_ += kSize - 1;
  }

  void Double(double number) {
    if (!std::isfinite(number)) {
      Literal("null");
      return;
    }
    char* const begin = position_;
    position_ = std::to_chars(begin, begin + kNumberSize, number).ptr;
    // Digits alone would read back as an integer.
    if (std::none_of(begin, position_, [](char c) { return c == '.' || c == 'e'; })) {
      Literal(".0");
    }
  }

  void Quoted(const Rep& text) {
    const std::string_view bytes = TextOf(text);
    *position_++ = '"';
    const char* from = bytes.data();
    const char* const end = from + bytes.size();
    while (from < end) {
      MakeRoom();
      // As many whole words as fit now. Reading beyond the end is fine: see Text.
      const char* const stop =
          std::min(end, from + (static_cast<std::size_t>(limit_ - position_) / kWord + 1) * kWord);
      std::uint64_t marks = 0;
      while (from < stop) {
        std::memcpy(position_, from, kWord);
        marks = MarkSpecial(LoadWord(from));
        if (marks != 0) {
          break;
        }
        from += kWord;
        position_ += kWord;
      }
      if (marks != 0) {
        const std::size_t plain = BytesBefore(marks);
        from += plain;
        position_ += plain;
      }
      if (from >= end) {
        position_ -= from - end;
      } else if (marks != 0) {
        from += Special(from, static_cast<std::size_t>(end - from));
      }
    }
    MakeRoom();
    *position_++ = '"';
  }

  // Writes the character at `from`, which is not plain ASCII. Returns how many bytes it took.
  std::size_t Special(const char* from, std::size_t size) {
    const auto lead = static_cast<unsigned char>(*from);
    if (lead >= 0x80) {
      std::size_t skip = 0;
      const std::size_t length =
          SequenceLength(reinterpret_cast<const unsigned char*>(from), size, skip);
      if (length == 0) {
        Literal("\xEF\xBF\xBD");  // U+FFFD
        return skip;
      }
      std::memcpy(position_, from, length);
      position_ += length;
      return length;
    }
    *position_++ = '\\';
    switch (lead) {
      case '"':
      case '\\':
        *position_++ = static_cast<char>(lead);
        break;
      case '\b':
        *position_++ = 'b';
        break;
      case '\f':
        *position_++ = 'f';
        break;
      case '\n':
        *position_++ = 'n';
        break;
      case '\r':
        *position_++ = 'r';
        break;
      case '\t':
        *position_++ = 't';
        break;
      default:
        Literal("u00");
        *position_++ = static_cast<char>('0' + (lead >> 4));
        *position_++ = "0123456789abcdef"[lead & 0xF];
        break;
    }
    return 1;
  }

  std::string out_;
  std::vector<OpenContainer> open_;
  char buffer_[kBufferSize];
  char* position_ = buffer_;
  char* const limit_ = buffer_ + kBufferSize - kReserve;
};

}  // namespace

std::string WriteStyled(const Rep& root) {
  return Writer<true>().Write(root);
}

std::string WriteCompact(const Rep& root) {
  return Writer<false>().Write(root);
}

}  // namespace LumJson::detail
