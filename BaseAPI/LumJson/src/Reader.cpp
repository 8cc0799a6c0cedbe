// Boost.JSON's parser knows the grammar; here its events become a tree.
//
// Values are stacked up in the order in which they are read, names before their values. When an
// array or object ends, its slots are the topmost ones and move into a block of just their number:
// one allocation for each container and each long text, and none for anything else.
#include "Reader.h"

#include <algorithm>
#include <boost/json/basic_parser_impl.hpp>
#include <charconv>
#include <cmath>
#include <functional>
#include <string>

#include "Storage.h"

namespace LumJson::detail {

namespace {

namespace json = boost::json;
using ErrorCode = boost::system::error_code;

// The values that are read but not yet part of a container.
class SlotStack {
 public:
  SlotStack() = default;
  SlotStack(const SlotStack&) = delete;
  SlotStack& operator=(const SlotStack&) = delete;
  ~SlotStack() {
    while (m_top != m_bottom) {
      ReleaseTree(*--m_top);
    }
    if (m_bottom != m_first) {
      delete[] m_bottom;
    }
  }

  // Room for one more, so that Push() does not throw.
  void Reserve() {
    if (m_top == m_limit) {
      Grow();
    }
  }
  void Push(const Rep& slot) { *m_top++ = slot; }
  Rep* Top() { return m_top; }
  void Drop(std::size_t count) { m_top -= count; }

 private:
  static constexpr std::size_t kFirstSize = 128;

  void Grow() {
    const auto size = static_cast<std::size_t>(m_top - m_bottom);
    const std::size_t room = 2 * size;
    Rep* const larger = new Rep[room];
    std::copy(m_bottom, m_top, larger);
    if (m_bottom != m_first) {
      delete[] m_bottom;
    }
    m_bottom = larger;
    m_top = larger + size;
    m_limit = larger + room;
  }

  Rep m_first[kFirstSize];
  Rep* m_bottom = m_first;
  Rep* m_top = m_first;
  Rep* m_limit = m_first + kFirstSize;
};

// The parser's handler. Each event answers whether to go on; the error's text interests nobody.
class TreeBuilder {
 public:
  static constexpr std::size_t max_array_size = SIZE_MAX;
  static constexpr std::size_t max_object_size = SIZE_MAX;
  static constexpr std::size_t max_string_size = SIZE_MAX;
  static constexpr std::size_t max_key_size = SIZE_MAX;

  Rep TakeRoot() {
    m_stack.Drop(1);
    return *m_stack.Top();
  }

  bool on_document_begin(ErrorCode&) { return true; }
  bool on_document_end(ErrorCode&) { return true; }
  bool on_array_begin(ErrorCode&) { return true; }
  bool on_object_begin(ErrorCode&) { return true; }

  bool on_array_end(std::size_t count, ErrorCode&) {
    Block* const block = count == 0 ? nullptr : NewFilledBlock(m_stack.Top() - count, count);
    m_stack.Drop(count);
    return Push(MakeContainer(Kind::kArray, block));
  }

  bool on_object_end(std::size_t count, ErrorCode&) {
    const Rep object = MakeObject(m_stack.Top() - 2 * count, count);
    m_stack.Drop(2 * count);
    return Push(object);
  }

  bool on_string_part(json::string_view part, std::size_t, ErrorCode&) {
    m_textSoFar.append(part.data(), part.size());
    return true;
  }

  bool on_string(json::string_view rest, std::size_t, ErrorCode&) {
    m_stack.Reserve();
    if (m_textSoFar.empty()) {
      m_stack.Push(MakeText({rest.data(), rest.size()}));
    } else {
      m_textSoFar.append(rest.data(), rest.size());
      m_stack.Push(MakeText(m_textSoFar));
      m_textSoFar.clear();
    }
    return true;
  }

  bool on_key_part(json::string_view part, std::size_t size, ErrorCode& error) {
    return on_string_part(part, size, error);
  }

  bool on_key(json::string_view rest, std::size_t size, ErrorCode& error) {
    return on_string(rest, size, error);
  }

  bool on_number_part(json::string_view, ErrorCode&) { return true; }

  bool on_int64(std::int64_t number, json::string_view text, ErrorCode&) {
    if (number == 0 && text.front() == '-') {
      return PushDouble(-0.0);
    }
    return Push(static_cast<std::uint64_t>(number), Kind::kInteger);
  }

  // Only called for what is above INT64_MAX.
  bool on_uint64(std::uint64_t number, json::string_view, ErrorCode&) {
    return Push(number, Kind::kUnsigned);
  }

  bool on_double(double approximate, json::string_view text, ErrorCode& error) {
    // The parser computes digits * 10^exponent in double arithmetic. That is exact for digits
    // below 10^15 and exponents from -22 to 22, and off by some last bits otherwise.
    constexpr std::size_t kExactSize = 16;  // 15 digits and a point, or fewer and an exponent
    const double magnitude = std::abs(approximate);
    if (text.size() <= kExactSize && magnitude >= 1e-7 && magnitude < 1e22) {
      return PushDouble(approximate);
    }
    double number = approximate;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec == std::errc::result_out_of_range) {
      number = magnitude < 1 ? std::copysign(0.0, approximate) : HUGE_VAL;
    }
    if (!std::isfinite(number)) {
      error = json::error::exponent_overflow;
      return false;
    }
    return PushDouble(number);
  }

  bool on_bool(bool boolean, ErrorCode&) { return Push(boolean ? 1 : 0, Kind::kBool); }
  bool on_null(ErrorCode&) { return Push(0, Kind::kNull); }
  bool on_comment_part(json::string_view, ErrorCode&) { return true; }
  bool on_comment(json::string_view, ErrorCode&) { return true; }

 private:
  // For values that own nothing, or what the stack owned until its slots were dropped: then there
  // is room, and nothing is thrown.
  bool Push(const Rep& value) {
    m_stack.Reserve();
    m_stack.Push(value);
    return true;
  }
  bool Push(std::uint64_t content, Kind kind) {
    Rep value = Rep();
    value.unsignedInteger = content;
    value.kind = kind;
    return Push(value);
  }

  bool PushDouble(double number) {
    Rep value = Rep();
    value.number = number;
    value.kind = Kind::kDouble;
    return Push(value);
  }

  SlotStack m_stack;
  std::string m_textSoFar;  // of a text that arrives in parts, because it has escapes
};

// The document with 10^9 - 1 for every exponent above: either is endless for a double.
std::string ShortenExponents(std::string_view document) {
  constexpr std::string_view kEndless = "999999999";
  std::string shortened;
  bool inText = false;
  bool escaped = false;
  for (std::size_t at = 0; at < document.size(); ++at) {
    const char byte = document[at];
    shortened += byte;
    if (byte == '"' && !escaped) {
      inText = !inText;
    }
    escaped = byte == '\\' && !escaped;
    if (inText || (byte != 'e' && byte != 'E')) {
      continue;
    }
    const std::size_t digits = std::min(document.find_first_not_of("+-0", at + 1), document.size());
    const std::size_t end =
        std::min(document.find_first_not_of("0123456789", digits), document.size());
    if (end - digits > kEndless.size()) {
      shortened.append(document, at + 1, digits - at - 1);
      shortened += kEndless;
      at = end - 1;
    }
  }
  return shortened;
}

}  // namespace

bool ReadDocument(std::string_view text, Rep& root) {
  json::parse_options options;
  options.max_depth = Value::kMaxDepth;
  json::basic_parser<TreeBuilder> parser(options);
  ErrorCode error;
  const std::size_t size = parser.write_some(false, text.data(), text.size(), error);
  if (!error && size == text.size()) {
    root = parser.handler().TakeRoot();
    return true;
  }
  if (error != json::error::exponent_overflow) {
    return false;
  }
  // Before 1.83 Boost.JSON refuses an exponent beyond 32 bits even where it leads to zero.
  const std::string shortened = ShortenExponents(text);
  return shortened.size() < text.size() && ReadDocument(shortened, root);
}

}  // namespace LumJson::detail
