// Reading, unpacking and parsing of JSON bodies.
#include "Body.h"

#include <algorithm>

#include "Gunzip.h"
#include "Text.h"

namespace {

constexpr std::uint64_t kFirstReserve = 1 << 20;  // bytes; a length is a claim, not a body

Reply TooLong(std::uint64_t limit) {
  return Problem(413, "the body is longer than " + std::to_string(limit) + " bytes");
}

// Replaces the gzip data in `text` by what it holds.
std::optional<Reply> Unpack(std::uint64_t limit, std::string& text) {
  std::string plain;
  switch (Gunzip(text, limit, plain)) {
    case GunzipResult::kDone:
      text = std::move(plain);
      return std::nullopt;
    case GunzipResult::kTooLong:
      return Problem(413, "the gzip body unpacks to more than " + std::to_string(limit) + " bytes");
    case GunzipResult::kCut:
      return Problem(400, "the gzip body ends too early");
    case GunzipResult::kBad:
      break;
  }
  return Problem(400, "the body is no gzip data, or damaged");
}

}  // namespace

std::optional<Reply> ReadJson(const Call& call, BodySource& body, std::uint64_t limit,
                              LumJson::Value& document) {
  document = LumJson::Value();
  const std::string* encoding = call.Header("Content-Encoding");
  const bool packed =
      encoding != nullptr && (SameName(*encoding, "gzip") || SameName(*encoding, "x-gzip"));
  if (encoding != nullptr && !packed && !SameName(*encoding, "identity")) {
    return Problem(415, "Content-Encoding '" + *encoding + "' is not understood, 'gzip' is");
  }
  if (call.contentLength.value_or(0) > limit) {
    return TooLong(limit);
  }
  std::string text;
  text.reserve(static_cast<std::size_t>(std::min(call.contentLength.value_or(0), kFirstReserve)));
  const BodySource::End end = body.Read([&](const char* data, std::size_t size) {
    if (size > limit - text.size()) {
      return false;
    }
    text.append(data, size);
    return true;
  });
  if (end == BodySource::End::kRefused) {
    return TooLong(limit);
  }
  if (end == BodySource::End::kCut) {
    return Problem(400, "the body ends after " + std::to_string(text.size()) + " bytes, too early");
  }
  if (text.empty()) {
    return Problem(400, "the body is empty, a JSON document is expected");
  }
  if (packed) {
    if (auto refusal = Unpack(limit, text)) {
      return refusal;
    }
  }
  if (!document.Parse(text)) {
    return Problem(400,
                   packed ? "the unpacked body is no valid JSON" : "the body is no valid JSON");
  }
  return std::nullopt;
}

void Discard(BodySource& body) {
  body.Read([](const char* /*data*/, std::size_t /*size*/) { return true; });
}
