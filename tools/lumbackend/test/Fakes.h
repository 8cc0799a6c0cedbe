// Requests and bodies for tests that use no socket.
#ifndef LUM_BACKEND_TEST_FAKES_H
#define LUM_BACKEND_TEST_FAKES_H

#include <zlib.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/system_executor.hpp>
#include <boost/asio/use_future.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <LumJson.h>

#include "Message.h"
#include "RequestParser.h"

namespace lumtest {

// Waits for a task and returns its result, or throws what it throws. The task runs on Asio's own
// threads, which no test ends while the store's thread may still be about to wake one.
template <typename T>
T Await(Task<T> task) {
  return boost::asio::co_spawn(boost::asio::system_executor(), std::move(task),
                               boost::asio::use_future)
      .get();
}

// A body out of memory, handed out in pieces of at most `piece` bytes.
class FakeBody : public BodySource {
 public:
  explicit FakeBody(std::string text = "", bool whole = true, std::size_t piece = 7)
      : m_text(std::move(text)), m_whole(whole), m_piece(piece) {}

  Task<std::string_view> Next() override {
    ++reads;
    const std::string_view piece = std::string_view(m_text).substr(m_at, m_piece);
    m_at += piece.size();
    co_return piece;
  }

  bool IsWhole() const override { return m_whole && m_at == m_text.size(); }

  int reads = 0;

 private:
  const std::string m_text;
  const bool m_whole;
  const std::size_t m_piece;
  std::size_t m_at = 0;
};

// The call that a head with these header lines makes. Throws when the head is malformed.
inline Call MakeCall(const std::string& method, const std::string& target,
                     const std::vector<std::string>& lines = {}) {
  Call call;
  std::string head = method + " " + target + " HTTP/1.1\r\n";
  for (const std::string& line : lines) {
    head += line + "\r\n";
  }
  RequestParser parser(call);
  parser.Take(head + "\r\n");
  if (parser.RefusalStatus() != 0) {
    throw std::invalid_argument(parser.Refusal());
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
