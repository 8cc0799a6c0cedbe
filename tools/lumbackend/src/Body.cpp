// Reading, unpacking and parsing of JSON bodies.
#include "Body.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "Gunzip.h"
#include "Text.h"

namespace {

// A document costs its text twice, while it is unpacked or written, and its values.
constexpr std::uint64_t kCostOfByte = 2;
constexpr std::uint64_t kCostOfValue = 48;
constexpr std::uint64_t kCommonBudget = 192 << 20;  // bytes, for all documents together

std::atomic<std::uint64_t> s_budgetUsed{0};

// Part of the common budget.
class Share {
 public:
  explicit Share(std::uint64_t budget) : m_budget(budget) {}
  Share(const Share&) = delete;
  Share& operator=(const Share&) = delete;
  ~Share() { s_budgetUsed -= m_size; }

  bool Grow(std::uint64_t size) {
    if (size > m_size) {
      const std::uint64_t used = s_budgetUsed += size - m_size;
      m_size = size;
      return used <= m_budget;
    }
    return true;
  }

 private:
  const std::uint64_t m_budget;
  std::uint64_t m_size = 0;
};

// Counts what a JSON text will need when it is read, while it comes in.
class Shape {
 public:
  // Nothing, or what there is too much of.
  const char* Add(std::string_view text) {
    for (const char byte : text) {
      if (m_inString) {
        m_inString = m_escaped || byte != '"';
        m_escaped = !m_escaped && byte == '\\';
      } else if (byte == '"') {
        m_inString = true;
      } else if (byte == '[' || byte == '{') {
        ++m_values;
        ++m_depth;
      } else if (byte == ']' || byte == '}') {
        --m_depth;
      } else if (byte == ',') {
        ++m_values;
      }
      if (m_depth > LumJson::Value::kMaxDepth) {
        return "nested too deeply";
      }
    }
    return m_values > kMostValues ? "made of too many values" : nullptr;
  }
  std::uint64_t Values() const { return m_values; }

 private:
  bool m_inString = false;
  bool m_escaped = false;
  std::uint64_t m_values = 0;
  std::int64_t m_depth = 0;
};

// The text of a document while it comes in, within its bounds.
class Text {
 public:
  Text(std::uint64_t limit, std::string tooLong)
      : m_limit(limit),
        m_tooLong(std::move(tooLong)),
        // A limit that was asked for is within the budget.
        m_share(std::max(kCommonBudget, (kCostOfByte + 1) * limit)) {}

  // False: the document is refused.
  bool Add(std::string_view piece) {
    if (piece.size() > m_limit - m_text.size()) {
      m_refusal = Problem(413, m_tooLong);
    } else if (const char* problem = m_looked ? m_shape.Add(piece) : nullptr) {
      m_refusal = Problem(413, std::string("the document is ") + problem);
    } else if (!m_share.Grow(kCostOfByte * (m_text.size() + piece.size()) +
                             kCostOfValue * m_shape.Values())) {
      m_refusal = Problem(413, "too much is being read at once");
      m_refusal->headers = {{"Retry-After", "1"}};
    } else {
      m_text.append(piece);
    }
    return !m_refusal;
  }

  // Packed data has no shape.
  void IsPacked() { m_looked = false; }

  const std::string& Bytes() const { return m_text; }
  const std::optional<Reply>& Refusal() const { return m_refusal; }

 private:
  const std::uint64_t m_limit;
  const std::string m_tooLong;
  bool m_looked = true;
  std::string m_text;
  Shape m_shape;
  Share m_share;
  std::optional<Reply> m_refusal;
};

// Adds what the gzip data in `packed` holds to `plain`.
std::optional<Reply> Unpack(const std::string& packed, Text& plain) {
  switch (Gunzip(packed, [&](std::string_view piece) { return plain.Add(piece); })) {
    case GunzipResult::kDone:
      return std::nullopt;
    case GunzipResult::kRefused:
      return plain.Refusal();
    case GunzipResult::kCut:
      return Problem(400, "the gzip body ends too early");
    case GunzipResult::kBad:
      break;
  }
  return Problem(400, "the body is no gzip data, or damaged");
}

void Keep(const std::string& text, Document& document) {
  document.kept = text.substr(0, kKeptOfBody);
  document.size = text.size();
}

std::optional<Reply> Parse(const Call& call, std::uint64_t limit, const Text& received,
                           Document& document) {
  const std::string bytes = std::to_string(limit) + " bytes";
  Text plain(limit, "the gzip body unpacks to more than " + bytes);
  const bool packed = call.IsPacked();
  if (packed) {
    auto refusal = Unpack(received.Bytes(), plain);
    if (!plain.Bytes().empty()) {
      Keep(plain.Bytes(), document);
    }
    if (refusal) {
      return refusal;
    }
  }
  if (!document.value.Parse(packed ? plain.Bytes() : received.Bytes())) {
    return Problem(400,
                   packed ? "the unpacked body is no valid JSON" : "the body is no valid JSON");
  }
  return std::nullopt;
}

}  // namespace

Task<Document> ReadJson(const Call& call, BodySource& body, std::uint64_t limit) {
  Document document;
  const std::string* encoding = call.Header("Content-Encoding");
  if (encoding != nullptr && !call.IsPacked() && !SameName(*encoding, "identity")) {
    document.refusal =
        Problem(415, "Content-Encoding '" + *encoding + "' is not understood, 'gzip' is");
    co_return document;
  }
  Text received(limit, "the body is longer than " + std::to_string(limit) + " bytes");
  if (call.IsPacked()) {
    received.IsPacked();
  }
  if (call.contentLength.value_or(0) > limit) {
    document.refusal = Problem(413, "the body is longer than " + std::to_string(limit) + " bytes");
    co_return document;
  }
  for (std::string_view piece = co_await body.Next(); !piece.empty() && received.Add(piece);) {
    piece = co_await body.Next();
  }
  const std::string& text = received.Bytes();
  Keep(text, document);
  if (received.Refusal()) {
    document.refusal = received.Refusal();
  } else if (!body.IsWhole()) {
    document.refusal =
        Problem(400, "the body ends after " + std::to_string(text.size()) + " bytes, too early");
  } else if (text.empty()) {
    document.refusal = Problem(400, "the body is empty, a JSON document is expected");
  } else {
    document.refusal = Parse(call, limit, received, document);
  }
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
