// Server-sent events.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <limits>

#include "Boost.h"
#include "Routes.h"

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPace(250);  // between two events
constexpr std::chrono::seconds kSignOfLife(15);  // after so long without one
constexpr std::int64_t kMostRows = 100;          // of one event

class Stream final : public BodySource {
 public:
  Stream(Store& store, std::int64_t after) : m_store(store), m_seen(after) {}

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
    const std::vector<std::string> news =
        m_store.Read(ListOfExchanges() +
                         "SELECT max(?2, ifnull(newest, 0)), json_object('rows', json(rows), "
                         "'skipped', iif(more, oldest - ?2 - 1, 0), 'totals', json(" +
                         kTotals + ")) FROM list",
                     {"", m_seen, std::numeric_limits<std::int64_t>::max(), kMostRows});
    m_seen = std::stoll(news[0]);
    return "retry: 1000\nevent: rows\nid: " + news[0] + "\ndata: " + news[1] + "\n\n";
  }

  Store& m_store;
  std::int64_t m_seen;  // number of the last exchange that was told of
  bool m_begun = false;
  bool m_ended = false;
  steady_clock::time_point m_lastSign;
  std::string m_event;
};

}  // namespace

Reply StreamReply(Store& store, const Call& call) {
  const std::string* last = call.Header("Last-Event-ID");
  const std::string after = last != nullptr ? *last : call.QueryValue("after").value_or("");
  const std::int64_t seen = after.empty() ? store.Last() : std::strtoll(after.c_str(), nullptr, 10);
  Reply reply = LiveReply("text/event-stream");
  reply.stream = std::make_shared<Stream>(store, seen);
  return reply;
}
