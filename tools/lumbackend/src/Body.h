// Request bodies that fit into memory.
#ifndef LUM_BACKEND_BODY_H
#define LUM_BACKEND_BODY_H

#include <LumJson.h>

#include <cstdint>
#include <optional>
#include <string>

#include "Message.h"

// A body as one JSON document, or the refusal that names what is wrong.
struct Document {
  LumJson::Value value;
  std::optional<Reply> refusal;
  std::string kept;        // the beginning of the text, for those who look at the exchange later
  std::uint64_t size = 0;  // of all of it
};

// Reads the body of `call` to its end, unpacks it where Content-Encoding says gzip, and parses it.
// Neither the packed nor the unpacked body may be longer than `limit` bytes, hold more than
// kMostValues values or nest deeper than the reader goes; and all documents that are being read
// share a budget of memory, whose end is a refusal with Retry-After.
Task<Document> ReadJson(const Call& call, BodySource& body, std::uint64_t limit);

constexpr std::uint64_t kMostValues = 2'000'000;
constexpr std::size_t kKeptOfBody = 65536;  // bytes

// What a report, or the request for a token, says about its device and topic.
Note SubjectOf(const LumJson::Value& document);

// Throws the body away, so that an answer can follow on the same connection.
Task<void> Discard(BodySource& body);

#endif  // LUM_BACKEND_BODY_H
