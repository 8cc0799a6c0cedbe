// Request bodies that fit into memory.
#ifndef LUM_BACKEND_BODY_H
#define LUM_BACKEND_BODY_H

#include <LumJson.h>

#include <cstdint>
#include <optional>
#include <string>

#include "Message.h"

// Reads the body of `call` to its end, unpacks it where Content-Encoding says gzip, and parses it
// as one JSON document into `document`. Neither the packed nor the unpacked body may be longer than
// `limit` bytes. Returns nothing, or the refusal that names what is wrong; `document` is then null.
std::optional<Reply> ReadJson(const Call& call, BodySource& body, std::uint64_t limit,
                              LumJson::Value& document);

// Throws the body away, so that an answer can follow on the same connection.
void Discard(BodySource& body);

#endif  // LUM_BACKEND_BODY_H
