// Requests and bodies for tests that use no socket.
#ifndef LUM_BACKEND_TEST_FAKES_H
#define LUM_BACKEND_TEST_FAKES_H

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/system_executor.hpp>
#include <boost/asio/use_future.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <LumJson.h>

#include "Gzip.h"
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

// The member "error" of a refusal, or the whole body where there is none.
inline std::string ErrorOf(const std::string& body) {
  LumJson::Value document;
  return document.Parse(body) && document.Has("error") ? document["error"].AsString() : body;
}

}  // namespace lumtest

#endif  // LUM_BACKEND_TEST_FAKES_H
