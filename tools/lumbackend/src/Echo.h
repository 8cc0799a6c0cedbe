// /echo: the request as a document.
#ifndef LUM_BACKEND_ECHO_H
#define LUM_BACKEND_ECHO_H

#include <cstdint>

#include "Message.h"

// The head as it was sent, secrets hidden, and the JSON document of a POST or PUT. `limit` is the
// longest document in bytes.
Task<Reply> Echo(const Call& call, BodySource& body, std::uint64_t limit);

#endif  // LUM_BACKEND_ECHO_H
