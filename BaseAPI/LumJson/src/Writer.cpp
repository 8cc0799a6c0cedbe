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

// Eight bytes in a word, the first one lowest.
std::uint64_t LoadWord(const char* from) {
  std::uint64_t word;
  std::memcpy(&word, from, kWord);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  word = __builtin_bswap64(word);
#endif
  return word;
}

void StoreWord(char* to, std::uint64_t word) {
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  word = __builtin_bswap64(word);
#endif
  std::memcpy(to, &word, kWord);
}

// Marks, in the high bit of each byte, the bytes of a word that cannot be copied as they are:
// control characters, quote, backslash, and everything beyond ASCII. Marks above the lowest one
// may be wrong, the lowest never is.
constexpr std::uint64_t MarkSpecial(std::uint64_t word) {
  const std::uint64_t quote = word ^ (kOnes * '"');
  const std::uint64_t backslash = word ^ (kOnes * '\\');
  return ((word - kOnes * 0x20) | (quote - kOnes) | (backslash - kOnes)) & kHighs;
}

// The number of bytes in front of the first marked one.
std::size_t BytesBefore(std::uint64_t marks) {
  return static_cast<std::size_t>(__builtin_ctzll(marks)) / 8;
}

// The same for two words, of which at least one has a mark.
std::size_t BytesBefore(std::uint64_t low, std::uint64_t high) {
  return low != 0 ? BytesBefore(low) : kWord + BytesBefore(high);
}

// The length of the well-formed UTF-8 sequence at `bytes`, or 0 and in `skip` the length of the
// maximal subpart of an ill-formed one (The Unicode Standard, 3.9, table 3-7). Behind a text stands
// no continuation byte, so that its end needs no look.
std::size_t SequenceLength(const unsigned char* bytes, std::size_t& skip) {
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
    if (bytes[skip] < low || bytes[skip] > high) {
      return 0;
    }
    low = 0x80;
    high = 0xBF;
  }
  return length;
}

// Decimal digits are made eight at a time in one word, without loops and branches: numbers differ
// too much for the processor to guess their length.
constexpr std::uint64_t kTenTo8 = 100000000;

// The eight digits of a number below 10^8 as bytes 0 to 9, the first one lowest.
std::uint64_t EightDigits(std::uint64_t number) {
  // Two numbers below 10^4, then four below 100, then eight below 10. Divisions by 100 and by 10
  // are multiplications that are exact for numbers of that size.
  const std::uint64_t fours = number / 10000 | number % 10000 << 32;
  const std::uint64_t hundreds = ((fours * 10486) >> 20) & 0x0000007F0000007F;
  const std::uint64_t twos = hundreds | (fours - 100 * hundreds) << 16;
  const std::uint64_t tens = ((twos * 103) >> 10) & 0x000F000F000F000F;
  return tens | (twos - 10 * tens) << 8;
}

char* WriteEightDigits(char* to, std::uint64_t number) {
  StoreWord(to, EightDigits(number) + kOnes * '0');
  return to + kWord;
}

// Without leading zeros; a number below 10^8, then any.
char* WriteShortNumber(char* to, std::uint64_t number) {
  const std::uint64_t digits = EightDigits(number);
  const std::size_t zeros = BytesBefore(digits | std::uint64_t{1} << 56);
  StoreWord(to, (digits + kOnes * '0') >> (8 * zeros));
  return to + kWord - zeros;
}

char* WriteNumber(char* to, std::uint64_t number) {
  if (number < kTenTo8) {
    return WriteShortNumber(to, number);
  }
  if (number < kTenTo8 * kTenTo8) {
    return WriteEightDigits(WriteShortNumber(to, number / kTenTo8), number % kTenTo8);
  }
  to = WriteShortNumber(to, number / (kTenTo8 * kTenTo8));
  to = WriteEightDigits(to, number / kTenTo8 % kTenTo8);
  return WriteEightDigits(to, number % kTenTo8);
}

template <bool kStyled>
class Writer {
 public:
  std::string Write(const Rep& root) {
    const Rep* value = &root;
    m_open.reserve(IsContainer(root) ? 16 : 0);
    for (;;) {
      if (IsContainer(*value) && Open(*value)) {
        value = Next();
        continue;
      }
      Leaf(*value);
      while (!m_open.empty() && m_open.back().cursor.AtEnd()) {
        Close();
      }
      if (m_open.empty()) {
        break;
      }
      *m_position++ = ',';
      value = Next();
    }
    if (kStyled) {
      *m_position++ = '\n';
    }
    m_out.append(m_buffer, m_position);
    return std::move(m_out);
  }

 private:
  struct OpenContainer {
    SlotCursor cursor;
    bool isObject;
    std::size_t slots;
    std::size_t begin;  // where its text begins
  };

  static constexpr char kBlanks[16] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ',
                                       ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
  // No number is longer.
  static constexpr std::size_t kNumberSize = 32;
  // The most that is written without asking for room: the end of one line, with a number, and the
  // indentation of the next.
  static constexpr std::size_t kReserve = 2 * kNumberSize + kIndent * (Value::kMaxDepth + 1);
  static constexpr std::size_t kBufferSize = 16384;
  // An estimate is trusted up to a multiple of what is written, and in any case up to a size that
  // costs next to nothing while it is not touched: a text that moves costs its pages twice.
  static constexpr std::size_t kMaxGrowth = 8;
  static constexpr std::size_t kFreely = std::size_t{16} << 20;

  void MakeRoom() {
    if (m_position > m_limit) {
      Flush();
    }
  }

  void Flush() {
    const std::size_t size = Written();
    if (size > m_out.capacity()) {
      m_out.reserve(size + std::min(EstimateRest(), std::max(kMaxGrowth * size, kFreely)));
    }
    m_out.append(m_buffer, m_position);
    m_position = m_buffer;
  }

  std::size_t Written() const {
    return m_out.size() + static_cast<std::size_t>(m_position - m_buffer);
  }

  // What is still to come, if in each open container the rest is like what has been written. New
  // memory costs more than anything else when a large text is written, so it should be the last.
  std::size_t EstimateRest() const {
    double rest = 0;
    for (const OpenContainer& container : m_open) {
      const double written = static_cast<double>(Written() - container.begin);
      const auto left = static_cast<double>(container.cursor.Left());
      rest += written * left / std::max(static_cast<double>(container.slots) - left, 1.0);
    }
    constexpr double kMargin = 1.1;
    return static_cast<std::size_t>(std::min(rest * kMargin, 0x1p62));
  }

  // False for a container that holds nothing.
  bool Open(const Rep& container) {
    SlotCursor cursor(container);
    if (cursor.AtEnd()) {
      return false;
    }
    const bool isObject = container.kind == Kind::kObject;
    m_open.push_back(OpenContainer{cursor, isObject, cursor.Left(), Written()});
    *m_position++ = isObject ? '{' : '[';
    return true;
  }

  void Close() {
    const bool isObject = m_open.back().isObject;
    const bool onOneLine = m_open.size() > Value::kMaxDepth;
    m_open.pop_back();
    if (!onOneLine) {
      BeginLine();
    }
    MakeRoom();
    *m_position++ = isObject ? '}' : ']';
  }

  // Begins the line of the next element or member and returns the value to go on it.
  const Rep* Next() {
    OpenContainer& container = m_open.back();
    if (m_open.size() <= Value::kMaxDepth) {
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
    *m_position++ = ':';
    if (kStyled) {
      *m_position++ = ' ';
    }
    return slot + 1;
  }

  void BeginLine() {
    if (kStyled) {
      *m_position++ = '\n';
      const std::size_t blanks = kIndent * m_open.size();
      for (std::size_t i = 0; i < blanks; i += sizeof(kBlanks)) {
        std::memcpy(m_position + i, kBlanks, sizeof(kBlanks));
      }
      m_position += blanks;
    }
  }

  void Leaf(const Rep& value) {
    switch (value.kind) {
      case Kind::kNull:
        Literal("null");
        break;
      case Kind::kBool:
        value.unsignedInteger != 0 ? Literal("true") : Literal("false");
        break;
      case Kind::kInteger:
        if (value.integer < 0) {
          *m_position++ = '-';
          m_position = WriteNumber(m_position, 0 - value.unsignedInteger);
          break;
        }
        [[fallthrough]];
      case Kind::kUnsigned:
        m_position = WriteNumber(m_position, value.unsignedInteger);
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
    std::memcpy(m_position, text, kSize - 1);
    m_position += kSize - 1;
  }

  void Double(double number) {
    if (!std::isfinite(number)) {
      Literal("null");
      return;
    }
    if (ShortDouble(number)) {
      return;
    }
    char* const begin = m_position;
    m_position = std::to_chars(begin, begin + kNumberSize, number).ptr;
    // Digits alone would read back as an integer.
    if (std::none_of(begin, m_position, [](char c) { return c == '.' || c == 'e'; })) {
      Literal(".0");
    }
  }

  // Writes a double that has at most six digits behind the point, several times as fast as
  // std::to_chars and with the same digits: as long as there are at most fifteen, no two decimal
  // numbers share a double, so the one that divides back into `number` is the only one.
  bool ShortDouble(double number) {
    constexpr std::uint64_t kScale = 1000000;
    const double magnitude = std::abs(number);
    if (!(magnitude < 1e9 && (magnitude >= 1e-3 || magnitude == 0))) {
      return false;
    }
    const auto scaled = (static_cast<std::uint64_t>(magnitude * (2 * kScale)) + 1) / 2;
    if (static_cast<double>(scaled) / kScale != magnitude) {
      return false;
    }
    if (std::signbit(number)) {
      *m_position++ = '-';
    }
    m_position = WriteNumber(m_position, scaled / kScale);
    *m_position++ = '.';
    // The digits without the zeros at the end, but one of these at least.
    const std::uint64_t fraction = EightDigits(scaled % kScale * 100);
    StoreWord(m_position, fraction + kOnes * '0');
    m_position += kWord - static_cast<std::size_t>(__builtin_clzll(fraction | 1)) / 8;
    return true;
  }

  void Quoted(const Rep& text) {
    *m_position++ = '"';
    if (text.kind == Kind::kLongText) {
      Escaped(text.text->Bytes(), text.text->size);
    } else if (!PlainShortText(text)) {
      char bytes[sizeof(Rep) + kWord] = {};
      std::memcpy(bytes, &text, sizeof(Rep));
      Escaped(bytes, text.shortTextSize);
    }
    *m_position++ = '"';
  }

  // Writes a short text that holds nothing but plain ASCII.
  bool PlainShortText(const Rep& text) {
    const char* const bytes = reinterpret_cast<const char*>(&text);
    const std::uint64_t low = MarkSpecial(LoadWord(bytes));
    const std::uint64_t high = MarkSpecial(LoadWord(bytes + kWord));
    if (BytesBefore(low, high) < text.shortTextSize) {
      return false;
    }
    std::memcpy(m_position, bytes, sizeof(Rep));
    m_position += text.shortTextSize;
    return true;
  }

  // At each of the bytes a whole word must be readable.
  void Escaped(const char* from, std::size_t size) {
    const char* const end = from + size;
    while (from < end) {
      MakeRoom();
      const std::size_t room =
          static_cast<std::size_t>(m_limit - m_position) / kWord * kWord + kWord;
      const char* const stop = room < static_cast<std::size_t>(end - from) ? from + room : end;
      std::uint64_t marks = 0;
      while (from < stop) {
        std::memcpy(m_position, from, kWord);
        marks = MarkSpecial(LoadWord(from));
        if (marks != 0) {
          break;
        }
        from += kWord;
        m_position += kWord;
      }
      if (marks != 0) {
        const std::size_t plain = BytesBefore(marks);
        from += plain;
        m_position += plain;
      }
      // A text ends in zeros, which are marked: nothing is read beyond its end.
      if (marks != 0 && from < end) {
        from += Special(from);
      }
    }
    MakeRoom();
  }

  // Writes the character at `from`, which is not plain ASCII. Returns how many bytes it took.
  std::size_t Special(const char* from) {
    const auto lead = static_cast<unsigned char>(*from);
    if (lead >= 0x80) {
      std::size_t skip = 0;
      const std::size_t length = SequenceLength(reinterpret_cast<const unsigned char*>(from), skip);
      if (length == 0) {
        Literal("\xEF\xBF\xBD");  // U+FFFD
        return skip;
      }
      std::memcpy(m_position, from, length);
      m_position += length;
      return length;
    }
    *m_position++ = '\\';
    switch (lead) {
      case '"':
      case '\\':
        *m_position++ = static_cast<char>(lead);
        break;
      case '\b':
        *m_position++ = 'b';
        break;
      case '\f':
        *m_position++ = 'f';
        break;
      case '\n':
        *m_position++ = 'n';
        break;
      case '\r':
        *m_position++ = 'r';
        break;
      case '\t':
        *m_position++ = 't';
        break;
      default:
        Literal("u00");
        *m_position++ = static_cast<char>('0' + (lead >> 4));
        *m_position++ = "0123456789abcdef"[lead & 0xF];
        break;
    }
    return 1;
  }

  std::string m_out;
  std::vector<OpenContainer> m_open;
  char m_buffer[kBufferSize];
  char* m_position = m_buffer;
  char* const m_limit = m_buffer + kBufferSize - kReserve;
};

}  // namespace

// Writers are declared, not made by `Writer()`, which would fill the whole buffer with zeros first.
std::string WriteStyled(const Rep& root) {
  Writer<true> writer;
  return writer.Write(root);
}

std::string WriteCompact(const Rep& root) {
  Writer<false> writer;
  return writer.Write(root);
}

}  // namespace LumJson::detail
