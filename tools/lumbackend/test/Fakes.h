// Requests and bodies for tests that use no socket.
#ifndef LUM_BACKEND_TEST_FAKES_H
#define LUM_BACKEND_TEST_FAKES_H

#include <zlib.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <LumJson.h>

#include "Message.h"

namespace lumtest {

// A body out of memory, handed out in pieces of at most `piece` bytes.
class FakeBody : public BodySource {
 public:
  explicit FakeBody(std::string text = "", End end = End::kComplete, std::size_t piece = 7)
      : m_text(std::move(text)), m_end(end), m_piece(piece) {}

  End Read(const std::function<bool(const char*, std::size_t)>& receive) override {
    ++reads;
    for (std::size_t at = 0; at < m_text.size(); at += m_piece) {
      if (!receive(m_text.data() + at, std::min(m_piece, m_text.size() - at))) {
        return End::kRefused;
      }
    }
    return m_end;
  }

  int reads = 0;

 private:
  const std::string m_text;
  const End m_end;
  const std::size_t m_piece;
};

// The call that a head with these header lines makes. Throws when the head is malformed.
inline Call MakeCall(const std::string& method, const std::string& target,
                     const std::vector<std::string>& lines = {}) {
  std::string head = method + " " + target + " HTTP/1.1\r\n";
  for (const std::string& line : lines) {
    head += line + "\r\n";
  }
  Call call;
  const std::string problem = ParseHead(head + "\r\n", call);
  if (!problem.empty()) {
    throw std::invalid_argument(problem);
  }
  call.authority = "127.0.0.1:8080";
  return call;
}

// One gzip member.
inline std::string Gzip(const std::string& text) {
  z_stream stream = {};
  if (deflateInit2(&stream, 9, Z_DEFLATED, 16 + MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("deflateInit2");
  }
  std::string packed(deflateBound(&stream, static_cast<uLong>(text.size())), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  const int result = deflate(&stream, Z_FINISH);
  packed.resize(packed.size() - stream.avail_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) {
    throw std::runtime_error("deflate");
  }
  return packed;
}

// The member "error" of a refusal, or the whole body where there is none.
inline std::string ErrorOf(const std::string& body) {
  LumJson::Value document;
  return document.Parse(body) && document.Has("error") ? document["error"].AsString() : body;
}

}  // namespace lumtest

#endif  // LUM_BACKEND_TEST_FAKES_H
