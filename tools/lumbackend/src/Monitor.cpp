// The answers that the page and scripts read.
#include "Monitor.h"

#include <charconv>
#include <chrono>
#include <optional>

#include "Paths.h"
#include "Text.h"

namespace {

constexpr std::int64_t kChartStep = 10'000;  // milliseconds

std::optional<std::int64_t> Number(const std::string& text) {
  std::int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, number);
  return failure == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

// The number in the query, `otherwise` without one, nothing when it is none from `least` to `most`.
std::optional<std::int64_t> NumberIn(const Call& call, const char* key, std::int64_t otherwise,
                                     std::int64_t least = 0, std::int64_t most = History::kEnd) {
  const auto text = call.QueryValue(key);
  const auto number = text ? Number(*text) : otherwise;
  return number && *number >= least && *number <= most ? number : std::nullopt;
}

Reply NoNumber(const std::string& key) {
  return Problem(400, "'" + key + "' in the query is no number, or out of range");
}

Reply Json(std::string text) {
  Reply reply;
  reply.body = std::move(text);
  reply.headers = {{"Cache-Control", "no-store"}, {"X-Content-Type-Options", "nosniff"}};
  return reply;
}

Reply NotKept() {
  return Problem(404, "no such exchange is kept");
}

Reply ListOfPaths() {
  LumJson::Value list = LumJson::Value::Array();
  for (const Path& path : kPaths) {
    LumJson::Value item;
    item["method"] = path.method;
    item["path"] = path.path;
    item["takes"] = path.takes;
    item["answers"] = path.answers;
    list.Append(std::move(item));
  }
  LumJson::Value document;
  document["paths"] = std::move(list);
  return Json(document.JsonValueToString());
}

}  // namespace

Monitor::Monitor(Store& store, History& history, std::uint64_t keep)
    : m_store(store), m_history(history), m_keep(keep), m_run(RandomHex(8)) {}

std::vector<std::pair<std::string, std::function<Reply(const Call&)>>> Monitor::Answers() {
  return {{"/", [](const Call&) { return PageReply(); }},
          {"/events", [this](const Call& call) { return Events(call); }},
          {"/stream", [this](const Call& call) { return StreamReply(call, m_store, m_history); }},
          {"/exchanges", [this](const Call& call) { return Exchanges(call); }},
          {"/exchanges/ID", [this](const Call& call) { return Exchange(call); }},
          {"/exchanges/ID/body", [this](const Call& call) { return Body(call); }},
          {"/totals", [this](const Call&) { return Totals(); }},
          {"/chart", [this](const Call& call) { return Chart(call); }},
          {"/paths", [](const Call&) { return ListOfPaths(); }}};
}

Reply Monitor::Exchanges(const Call& call) {
  const auto before = NumberIn(call, "before", History::kEnd);
  const auto after = NumberIn(call, "after", 0);
  const auto since = NumberIn(call, "since", 0);
  const auto limit = NumberIn(call, "limit", 50, 1, 500);
  if (!before || !after || !since || !limit) {
    return NoNumber(!before ? "before" : !after ? "after" : !since ? "since" : "limit");
  }
  const auto value = [&](const char* key) { return call.QueryValue(key).value_or(""); };
  const Filter filter{value("text"),   value("kind"),  value("status"),
                      value("device"), value("topic"), *since};
  const History::Rows rows =
      m_history.Find(filter, *after, *before, *limit, value("order") == "oldest");
  const auto [total, isExact] = m_history.Count(filter);
  return Json("{\"rows\":" + rows.json + ",\"more\":" + (rows.more ? "true" : "false") +
              ",\"total\":" + std::to_string(total) + ",\"totalIsExact\":" +
              (isExact ? "true" : "false") + ",\"last\":" + std::to_string(m_store.Last()) + "}");
}

Reply Monitor::Exchange(const Call& call) {
  const auto id = Number(call.names[1]);
  std::string exchange = id ? m_history.Exchange(*id) : "";
  return exchange.empty() ? NotKept() : Json(std::move(exchange));
}

Reply Monitor::Body(const Call& call) {
  const auto id = Number(call.names[1]);
  std::string body;
  bool isText = false;
  if (!id || !m_history.Body(*id, body, isText)) {
    return NotKept();
  }
  Reply reply = Json(std::move(body));
  LumJson::Value document;
  if (reply.body.empty()) {
    reply.status = 204;
  } else if (!isText || !document.Parse(reply.body)) {
    reply.contentType = "application/octet-stream";
  }
  return reply;
}

Reply Monitor::Totals() {
  std::string totals = m_history.Totals();
  totals.pop_back();
  return Json(totals + ",\"last\":" + std::to_string(m_store.Last()) +
              ",\"keep\":" + std::to_string(m_keep) +
              ",\"version\":\"" LUM_VERSION "\",\"devices\":" + m_history.Frequent("device") +
              ",\"topics\":" + m_history.Frequent("topic") + "}");
}

Reply Monitor::Chart(const Call& call) {
  const auto minutes = NumberIn(call, "minutes", 10, 1, 60);
  if (!minutes) {
    return NoNumber("minutes");
  }
  const std::int64_t now = std::chrono::duration_cast<std::chrono::milliseconds>(
                               std::chrono::system_clock::now().time_since_epoch())
                               .count();
  const std::int64_t steps = *minutes * 60'000 / kChartStep;
  return Json(m_history.Chart((now / kChartStep - steps + 1) * kChartStep, kChartStep, steps));
}

Reply Monitor::Events(const Call& call) {
  const auto after = NumberIn(call, "after", 0);
  return after ? Json(m_history.Events(*after, m_run))
               : Problem(400, "'after' in the query is no number");
}
