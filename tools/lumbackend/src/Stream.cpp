// Server-sent events.
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "Monitor.h"

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPace(250);  // between two events
constexpr std::chrono::seconds kSignOfLife(15);  // after so long without one
constexpr std::int64_t kMostRows = 100;          // of one event

class Stream final : public BodySink {
 public:
  Stream(const Store& store, History& history, std::int64_t after)
      : m_store(store), m_history(history), m_seen(after) {}

  Task<std::string_view> Next() override {
    boost::asio::steady_timer timer(co_await boost::asio::this_coro::executor);
    for (bool first = !std::exchange(m_begun, true);
         m_store.Last() <= m_seen && !first && !m_ended;) {
      timer.expires_after(kPace);
      co_await timer.async_wait(boost::asio::use_awaitable);
      if (steady_clock::now() >= m_lastSign + kSignOfLife) {
        m_lastSign = steady_clock::now();
        co_return ": alive\n\n";
      }
    }
    if (m_ended) {
      co_return std::string_view();
    }
    // No faster than the pace, however much comes in.
    timer.expires_at(m_lastSign + kPace);
    co_await timer.async_wait(boost::asio::use_awaitable);
    m_lastSign = steady_clock::now();
    m_event = Event();
    co_return m_event;
  }

  void End() override { m_ended = true; }

 private:
  std::string Event() {
    const History::Rows rows = m_history.Find({}, m_seen, History::kEnd, kMostRows);
    const std::int64_t skipped = rows.more ? rows.oldest - m_seen - 1 : 0;
    m_seen = std::max(m_seen, rows.newest);
    return "retry: 1000\nevent: rows\nid: " + std::to_string(m_seen) +
           "\ndata: {\"rows\":" + rows.json + ",\"skipped\":" + std::to_string(skipped) +
           ",\"totals\":" + m_history.Totals() + "}\n\n";
  }

  const Store& m_store;
  History& m_history;
  std::int64_t m_seen;  // number of the last exchange that was told of
  bool m_begun = false;
  bool m_ended = false;
  steady_clock::time_point m_lastSign;
  std::string m_event;
};

}  // namespace

Reply StreamReply(const Call& call, const Store& store, History& history) {
  const std::string* last = call.Header("Last-Event-ID");
  const std::string after = last != nullptr ? *last : call.QueryValue("after").value_or("");
  const std::int64_t seen = after.empty() ? store.Last() : std::strtoll(after.c_str(), nullptr, 10);
  Reply reply;
  reply.contentType = "text/event-stream";
  reply.headers = {{"Cache-Control", "no-store"}, {"X-Content-Type-Options", "nosniff"}};
  reply.stream = std::make_shared<Stream>(store, history, seen);
  return reply;
}
