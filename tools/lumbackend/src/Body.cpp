// Reading, unpacking and parsing of JSON bodies.
#include "Body.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/beast/core/string.hpp>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "Text.h"

namespace {

constexpr int kGzipOnly = 16 + MAX_WBITS;  // no zlib format, no raw deflate

// A document costs its text twice, while it is unpacked or written, and its values.
constexpr std::uint64_t kCostOfByte = 2;
constexpr std::uint64_t kCostOfValue = 48;
constexpr std::uint64_t kCommonBudget = 192 << 20;  // bytes, for all documents together

std::atomic<std::uint64_t> s_budgetUsed{0};

// The text of a document while it comes in, within its bounds. Counts what a JSON text will need
// when it is read; packed data has no shape to look at.
class Text {
 public:
  Text(std::uint64_t limit, std::string tooLong, bool packed = false)
      : m_limit(limit),
        m_tooLong(std::move(tooLong)),
        m_packed(packed),
        // A limit that was asked for is within the budget.
        m_budget(std::max(kCommonBudget, (kCostOfByte + 1) * limit)) {}
  Text(const Text&) = delete;
  Text& operator=(const Text&) = delete;
  ~Text() { s_budgetUsed -= m_cost; }

  // The refusal of what is no part of the document any more.
  std::optional<Reply> Add(std::string_view piece) {
    if (piece.size() > m_limit - m_text.size()) {
      return TooLong();
    }
    if (!m_packed) {
      Count(piece);
    }
    if (m_deepest > LumJson::Value::kMaxDepth) {
      return Problem(413, "the document is nested too deeply");
    }
    if (m_values > kMostValues) {
      return Problem(413, "the document is made of too many values");
    }
    const std::uint64_t cost =
        kCostOfByte * (m_text.size() + piece.size()) + kCostOfValue * m_values;
    const std::uint64_t grown = cost - std::exchange(m_cost, cost);
    if (grown > 0 && (s_budgetUsed += grown) > m_budget) {
      Reply later = Problem(413, "too much is being read at once");
      later.headers = {{"Retry-After", "1"}};
      return later;
    }
    m_text.append(piece);
    return std::nullopt;
  }

  Reply TooLong() const { return Problem(413, m_tooLong); }
  const std::string& Bytes() const { return m_text; }

 private:
  void Count(std::string_view piece) {
    for (const char byte : piece) {
      if (m_inString) {
        m_inString = m_escaped || byte != '"';
        m_escaped = !m_escaped && byte == '\\';
      } else if (byte == '"') {
        m_inString = true;
      } else if (byte == '[' || byte == '{') {
        ++m_values;
        m_deepest = std::max(m_deepest, ++m_depth);
      } else if (byte == ']' || byte == '}') {
        --m_depth;
      } else if (byte == ',') {
        ++m_values;
      }
    }
  }

  const std::uint64_t m_limit;
  const std::string m_tooLong;
  const bool m_packed;
  const std::uint64_t m_budget;
  std::string m_text;
  std::uint64_t m_cost = 0;  // part of the common budget
  bool m_inString = false;
  bool m_escaped = false;
  std::uint64_t m_values = 0;
  std::int64_t m_depth = 0;
  std::int64_t m_deepest = 0;
};

// Adds what the gzip members (RFC 1952) in `packed` hold, one after another, to `plain`.
std::optional<Reply> Unpack(const std::string& packed, Text& plain) {
  z_stream stream = {};
  if (inflateInit2(&stream, kGzipOnly) != Z_OK) {
    throw std::bad_alloc();
  }
  const std::unique_ptr<z_stream, decltype(&inflateEnd)> end(&stream, &inflateEnd);
  std::array<char, 16384> piece = {};
  std::size_t given = 0;
  for (int result = Z_OK; result != Z_STREAM_END || stream.avail_in > 0 || given < packed.size();) {
    if (result == Z_STREAM_END) {
      inflateReset(&stream);
    }
    if (stream.avail_in == 0) {
      // avail_in is 32 bits wide, a body need not be.
      const std::size_t count =
          std::min<std::size_t>(packed.size() - given, std::numeric_limits<uInt>::max());
      if (count == 0) {
        return Problem(400, "the gzip body ends too early");
      }
      stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data() + given));
      stream.avail_in = static_cast<uInt>(count);
      given += count;
    }
    stream.next_out = reinterpret_cast<Bytef*>(piece.data());
    stream.avail_out = static_cast<uInt>(piece.size());
    result = inflate(&stream, Z_NO_FLUSH);
    if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) {
      return Problem(400, "the body is no gzip data, or damaged");
    }
    if (auto refusal = plain.Add({piece.data(), piece.size() - stream.avail_out})) {
      return refusal;
    }
  }
  return std::nullopt;
}

void Keep(const std::string& text, Document& document) {
  document.kept = StartOf(text, kKeptOfBody);
  document.size = text.size();
}

Task<std::optional<Reply>> Read(const Call& call, BodySource& body, std::uint64_t limit,
                                Document& document) {
  const bool packed = call.IsPacked();
  const std::string* encoding = call.Header("Content-Encoding");
  if (encoding != nullptr && !packed && !boost::beast::iequals(*encoding, "identity")) {
    co_return Problem(415, "Content-Encoding '" + *encoding + "' is not understood, 'gzip' is");
  }
  const std::string bytes = std::to_string(limit) + " bytes";
  Text received(limit, "the body is longer than " + bytes, packed);
  if (call.contentLength.value_or(0) > limit) {
    co_return received.TooLong();
  }
  std::optional<Reply> refusal;
  for (bool more = true; more && !refusal;) {
    const std::string_view piece = co_await body.Next();
    more = !piece.empty();
    refusal = received.Add(piece);
  }
  const std::string& text = received.Bytes();
  Keep(text, document);
  if (refusal) {
    co_return refusal;
  }
  if (!body.IsWhole()) {
    co_return Problem(400,
                      "the body ends after " + std::to_string(text.size()) + " bytes, too early");
  }
  if (text.empty()) {
    co_return Problem(400, "the body is empty, a JSON document is expected");
  }
  Text plain(limit, "the gzip body unpacks to more than " + bytes);
  if (packed) {
    refusal = Unpack(text, plain);
    if (!plain.Bytes().empty()) {
      Keep(plain.Bytes(), document);
    }
  }
  if (!refusal && !document.value.Parse(packed ? plain.Bytes() : text)) {
    co_return Problem(400,
                      packed ? "the unpacked body is no valid JSON" : "the body is no valid JSON");
  }
  co_return refusal;
}

}  // namespace

Task<Document> ReadJson(const Call& call, BodySource& body, std::uint64_t limit) {
  Document document;
  document.refusal = co_await Read(call, body, limit, document);
  if (document.refusal) {
    document.refusal->note.body = document.kept;
    document.refusal->note.size = document.size;
  }
  co_return document;
}

Note SubjectOf(const LumJson::Value& document) {
  Note note;
  for (const char* name : {"accessId", "device", "deviceId"}) {
    if (const LumJson::Value* device = document.Find(name); note.device.empty() && device) {
      note.device = device->JsonValueToString();
    }
  }
  if (const LumJson::Value* topic = document.Find("topic_name")) {
    note.topic = topic->JsonValueToString();
  }
  return note;
}

Task<void> Discard(BodySource& body) {
  for (bool more = true; more;) {
    const std::string_view piece = co_await body.Next();
    more = !piece.empty();
  }
}
