// A back end that tests ask without a socket.
#ifndef LUM_BACKEND_TEST_BACKEND_FIXTURE_H
#define LUM_BACKEND_TEST_BACKEND_FIXTURE_H

#include <gtest/gtest.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/system_executor.hpp>
#include <boost/asio/use_future.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Backend.h"
#include "RequestParser.h"
#include "support/CaptureFd.h"
#include "support/Files.h"

namespace lumtest {

// Waits for a task and returns its result, or throws what it throws. The task runs on Asio's own
// threads, which no test ends while the store's thread may still be about to wake one.
template <typename T>
T Await(Task<T> task) {
  return boost::asio::co_spawn(boost::asio::system_executor(), std::move(task),
                               boost::asio::use_future)
      .get();
}

// A body out of memory, handed out in pieces: some bytes each, many each of a long one.
class FakeBody : public BodySource {
 public:
  explicit FakeBody(std::string text, bool whole = true)
      : m_text(std::move(text)), m_whole(whole) {}

  Task<std::string_view> Next() override {
    const std::size_t size = 7 + m_text.size() / 100;
    const std::string_view piece = std::string_view(m_text).substr(given, size);
    given += piece.size();
    co_return piece;
  }

  bool IsWhole() const override { return m_whole && given == m_text.size(); }

  std::size_t given = 0;  // bytes so far

 private:
  const std::string m_text;
  const bool m_whole;
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

// The document of an answer.
inline LumJson::Value Parsed(const Reply& reply) {
  LumJson::Value document;
  EXPECT_TRUE(document.Parse(reply.body)) << reply.body;
  return document;
}

// The member "error" of a refusal.
inline std::string ErrorOf(const Reply& reply) {
  return Parsed(reply)["error"].AsString();
}

// All that an answer streams.
inline std::string Streamed(const Reply& reply) {
  std::string text;
  for (std::string_view piece = Await(reply.stream->Next()); !piece.empty();
       piece = Await(reply.stream->Next())) {
    text += piece;
  }
  return text;
}

// A back end with a root directory of its own, which asks for no token.
class BackendFixture : public testing::Test {
 protected:
  BackendFixture() {
    m_options.root = m_temp.Path();
    m_options.open = true;
  }

  // The back end, made at its first use so that a test can set options before.
  Backend& Subject() {
    if (!m_backend) {
      m_backend.emplace(m_options, m_signKey);
    }
    return *m_backend;
  }

  void Restart() {
    m_backend.reset();
    Subject();
  }

  // Asks, and keeps the exchange as a connection does.
  Reply Ask(const std::string& method, const std::string& target, FakeBody& body,
            const std::vector<std::string>& lines = {}) {
    Exchange exchange;
    exchange.call = MakeCall(method, target, lines);
    const Reply reply = Await(Subject().Handle(exchange.call, body));
    exchange.reply = reply;
    exchange.status = reply.status;
    exchange.bytesIn = body.given;
    exchange.bytesOut = 123;
    Await(Subject().Finished(std::move(exchange)));
    return reply;
  }
  Reply Ask(const std::string& method, const std::string& target, const std::string& text = "",
            const std::vector<std::string>& lines = {}) {
    FakeBody body(text);
    return Ask(method, target, body, lines);
  }

  // The document that is answered with this status.
  LumJson::Value Json(const std::string& target, int status = 200) {
    const Reply reply = Ask("GET", target);
    EXPECT_EQ(reply.status, status) << reply.body;
    return Parsed(reply);
  }

  CaptureStderr m_log;
  TempDir m_temp;
  Options m_options;
  std::string m_signKey;
  std::optional<Backend> m_backend;
};

}  // namespace lumtest

#endif  // LUM_BACKEND_TEST_BACKEND_FIXTURE_H
