// The answers that the page and scripts read. SQLite writes their JSON itself.
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/hex.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/split.hpp>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <optional>

#include "Boost.h"
#include "Embedded.h"
#include "Paths.h"
#include "Routes.h"
#include "Signature.h"
#include "Text.h"

using std::chrono::steady_clock;

namespace {

constexpr std::int64_t kEnd = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kChartStep = 10'000;      // milliseconds
constexpr std::int64_t kMostCounted = 10'000;    // exchanges that hold words
constexpr std::chrono::milliseconds kPace(250);  // between two events
constexpr std::chrono::seconds kSignOfLife(15);  // after so long without one
constexpr std::int64_t kMostRows = 100;          // of one event
constexpr char kPrivate[] = "\xEE\x80\x80";      // U+E000, see the index of words

// The members of an exchange, in a list and whole.
constexpr char kRow[] =
    "'id', id, 'time', time, 'duration', duration, 'kind', kind, 'method', method, 'path', path, "
    "'query', query, 'status', status, 'bytesIn', bytes_in, 'bytesOut', bytes_out, "
    "'device', device, 'topic', topic, 'object', object, 'gzip', json(iif(gzip, 'true', 'false')), "
    "'signed', json(iif(signed, 'true', 'false')), 'tls', json(iif(tls, 'true', 'false')), "
    "'text', text, 'refusal', refusal";
constexpr char kMore[] =
    ", 'client', client, 'authority', authority, 'head', json(head), "
    "'answerHead', json(answer_head), 'answerText', answer_text, 'bodySize', body_size, "
    "'bodyIsWhole', json(iif(body_whole, 'true', 'false'))";

// Number of the newest exchange that the same statement sees: who has it has missed none.
constexpr char kLast[] = "(SELECT ifnull(max(id), 0) FROM exchange)";

// {"all", "kinds", "database"}: how many exchanges of each kind, and the name of the database.
constexpr char kTotals[] =
    "(SELECT json_object('all', ifnull(sum(n), 0), 'kinds', json_group_object(kind, n), "
    "'database', (SELECT name FROM identity)) "
    "FROM (SELECT kind, sum(n) AS n FROM tally GROUP BY kind))";

std::optional<std::int64_t> Number(const std::string& text) {
  std::int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, number);
  return failure == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

// The number in the query, `otherwise` without one, nothing when it is none from `least` to `most`.
std::optional<std::int64_t> NumberIn(const Call& call, const char* key, std::int64_t otherwise,
                                     std::int64_t least = 0, std::int64_t most = kEnd) {
  const auto text = call.QueryValue(key);
  const auto number = text ? Number(*text) : otherwise;
  return number && *number >= least && *number <= most ? number : std::nullopt;
}

Reply NoNumber(const std::string& key) {
  return Problem(400, "'" + key + "' in the query is no number, or out of range");
}

// The answer whose body, and type where it is not JSON, a query yields.
Reply Found(const std::vector<std::string>& columns) {
  if (columns.empty()) {
    return Problem(404, "no such exchange is kept");
  }
  Reply reply = LiveReply(columns.size() > 1 ? columns[1] : "application/json");
  reply.body = columns[0];
  return reply;
}

// A byte of a word; what SQLite's tokenizer takes for a blank must not be in one.
bool IsWordByte(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 0x80 || std::isalnum(byte) != 0;
}

// What the query asks for as an expression for the index of words, "" for everything.
std::string Words(const Call& call) {
  std::string expression;
  const auto demand = [&](const std::string& word, const char* end) {
    expression += (expression.empty() ? "\"" : " AND \"") + word + end;
  };
  for (const std::string key : {"kind", "status", "device", "topic"}) {
    std::string value = call.QueryValue(key).value_or("");
    // Any text may be the name of a device. A kind that is no word is none of ours.
    if (key == "device" || key == "topic" || !boost::algorithm::all(value, IsWordByte)) {
      value = boost::algorithm::hex(value);
    }
    if (!value.empty()) {
      demand(kPrivate + key.substr(0, 1) + value, "\"");
    }
  }
  std::vector<std::string> words;
  const std::string text = call.QueryValue("text").value_or("");
  boost::algorithm::split(words, text, [](char byte) { return !IsWordByte(byte); });
  for (const std::string& word : words) {
    if (!word.empty()) {
      demand(word, "\" *");
    }
  }
  return expression;
}

// Makes a table `list` of one row out of the exchanges that hold the words ?1, all where `words` is
// empty, and are numbered between ?2 and ?3: "rows" are ?4 of them as JSON, newest first, the
// newest or the oldest there are, "newest" and "oldest" numbers of theirs, and "more" says that
// there are others.
std::string ListOfExchanges(const std::string& words = "", bool fromOldest = false) {
  const std::string first =
      " ORDER BY id " + std::string(fromOldest ? "ASC" : "DESC") + " LIMIT ?4";
  const std::string which = words.empty()
                                ? "id > ?2 AND id < ?3"
                                : "id IN (SELECT rowid AS id FROM search WHERE search MATCH ?1 AND "
                                  "rowid > ?2 AND rowid < ?3" +
                                      first + " + 1)";
  return "WITH found AS (SELECT id, json_object(" + std::string(kRow) +
         ") AS row FROM exchange WHERE " + which + first +
         " + 1), "
         "page AS (SELECT * FROM found" +
         first +
         "), "
         "list (rows, newest, oldest, more) AS (SELECT json_group_array(json(row)), max(id), "
         "min(id), (SELECT count(*) FROM found) > ?4 FROM (SELECT * FROM page ORDER BY id DESC))";
}

Reply Exchanges(Store& store, const Call& call) {
  const auto before = NumberIn(call, "before", kEnd);
  const auto after = NumberIn(call, "after", 0);
  const auto since = NumberIn(call, "since", 0);
  const auto limit = NumberIn(call, "limit", 50, 1, 500);
  if (!before || !after || !since || !limit) {
    return NoNumber(!before ? "before" : !after ? "after" : !since ? "since" : "limit");
  }
  const auto value = [&](const char* key) { return call.QueryValue(key).value_or(""); };
  const bool tallied = value("text").empty() && *since == 0;
  const std::string words = Words(call);
  const std::string counted =
      tallied         ? "SELECT ifnull(sum(n), 0) FROM tally WHERE (?7 = '' OR kind = ?7) AND "
                        "(?8 = '' OR class = ?8) AND (?9 = '' OR device = ?9) AND "
                        "(?10 = '' OR topic = ?10)"
      : words.empty() ? "SELECT count(*) FROM (SELECT 1 FROM exchange WHERE id > ?5 LIMIT ?6 + 1)"
                      : "SELECT count(*) FROM (SELECT 1 FROM search WHERE search MATCH ?1 AND "
                        "rowid > ?5 LIMIT ?6 + 1)";
  std::vector<Cell> cells = {words,  std::max(*after, *since),     *before, *limit,
                             *since, tallied ? kEnd : kMostCounted};
  if (tallied) {
    for (const char* key : {"kind", "status", "device", "topic"}) {
      cells.emplace_back(value(key));
    }
  }
  return Found(store.Read(
      ListOfExchanges(words, value("order") == "oldest") + ", count (n) AS (" + counted +
          ") SELECT json_object('rows', json(rows), 'more', json(iif(more, 'true', 'false')), "
          "'total', min(n, ?6), 'totalIsExact', json(iif(n <= ?6, 'true', 'false')), "
          "'last', " +
          kLast + ") FROM list, count",
      cells));
}

Reply Exchange(Store& store, const Call& call) {
  return Found(store.Read(
      "SELECT json_object(" + std::string(kRow) + kMore + ") FROM exchange WHERE id = ?1",
      {Number(call.names[1]).value_or(0)}));
}

Reply Body(Store& store, const Call& call) {
  Reply reply = Found(
      store.Read("SELECT body, iif(body = '' OR typeof(body) = 'text' AND json_valid(body), "
                 "'application/json', 'application/octet-stream') FROM (SELECT "
                 "ifnull((SELECT document FROM report WHERE id = exchange.report), body) AS body "
                 "FROM exchange WHERE id = ?1)",
                 {Number(call.names[1]).value_or(0)}));
  if (reply.body.empty()) {
    reply.status = 204;
  }
  return reply;
}

// Devices or topics that occur most, as an expression of SQL.
std::string Frequent(const std::string& column) {
  return "(SELECT json_group_array(" + column + ") FROM (SELECT " + column + " FROM tally WHERE " +
         column + " <> '' GROUP BY 1 ORDER BY sum(n) DESC LIMIT 100))";
}

Reply Totals(Store& store) {
  return Found(store.Read("SELECT json_patch(" + std::string(kTotals) + ", json_object('last', " +
                              kLast + ", 'keep', ?1, 'version', ?2, 'devices', " +
                              Frequent("device") + ", 'topics', " + Frequent("topic") + "))",
                          {static_cast<std::int64_t>(store.Keep()), LUM_VERSION}));
}

// For each step all, reports, refusals.
Reply Chart(Store& store, const Call& call) {
  const auto minutes = NumberIn(call, "minutes", 10, 1, 60);
  if (!minutes) {
    return NoNumber("minutes");
  }
  const std::int64_t steps = *minutes * 60'000 / kChartStep;
  const std::int64_t from = (std::time(nullptr) * 1000 / kChartStep - steps + 1) * kChartStep;
  return Found(store.Read(
      "WITH RECURSIVE step(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM step WHERE i + 1 < ?3), "
      "beat AS (SELECT (time - ?1) / ?2 AS i, count(*) AS n, sum(kind = 'report') AS reports, "
      "sum(kind = 'refusal') AS refusals FROM exchange WHERE time >= ?1 GROUP BY 1) "
      "SELECT json_object('from', ?1, 'step', ?2, 'reports', json_group_array(ifnull(reports, 0)), "
      "'refusals', json_group_array(ifnull(refusals, 0)), 'all', json_group_array(ifnull(n, 0))) "
      "FROM (SELECT * FROM step LEFT JOIN beat USING (i) ORDER BY i)",
      {from, kChartStep, steps}));
}

// The last reports, uploads and refusals. `run` names this run of the back end.
Reply Events(Store& store, const std::string& run, const Call& call) {
  const auto after = NumberIn(call, "after", 0);
  if (!after) {
    return Problem(400, "'after' in the query is no number");
  }
  const std::string facet = "\"" + std::string(kPrivate) + "k";
  return Found(store.Read(
      "SELECT json_object('run', ?3, 'last', max(?2, ifnull(max(id), 0)), 'events', "
      "json_group_array(json(event))) FROM (SELECT id, json_object('id', id, 'time', time, "
      "'kind', kind, 'method', method, 'path', path, 'text', "
      "CASE kind WHEN 'refusal' THEN refusal WHEN 'upload' THEN object ELSE text END, "
      "'status', status, 'bytes', bytes_in) AS event FROM (SELECT * FROM exchange WHERE id IN "
      "(SELECT rowid FROM search WHERE search MATCH ?1 AND rowid > ?2 ORDER BY rowid DESC "
      "LIMIT 200) ORDER BY id))",
      {facet + "report\" OR " + facet + "upload\" OR " + facet + "refusal\"", *after, run}));
}

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
                     {"", m_seen, kEnd, kMostRows});
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

// Each event tells of the newest exchanges, of how many there was no room for, and the totals. A
// reader that comes back says in Last-Event-ID, or else in "after" of the query, what it has seen.
Reply News(Store& store, const Call& call) {
  const std::string* last = call.Header("Last-Event-ID");
  const std::string after = last != nullptr ? *last : call.QueryValue("after").value_or("");
  const std::int64_t seen = after.empty() ? store.Last() : std::strtoll(after.c_str(), nullptr, 10);
  Reply reply = LiveReply("text/event-stream");
  reply.stream = std::make_shared<Stream>(store, seen);
  return reply;
}

Reply ListOfPaths() {
  LumJson::Value document;
  LumJson::Value& list = document["paths"] = LumJson::Value::Array();
  for (const Path& path : kPaths) {
    LumJson::Value item;
    item["method"] = path.method;
    item["path"] = path.path;
    item["takes"] = path.takes;
    item["answers"] = path.answers;
    list.Append(std::move(item));
  }
  return Found({document.JsonValueToString()});
}

// What lies between the first `tag` and its end, hashed as Content-Security-Policy asks for it.
std::string HashOf(const std::string& page, const std::string& tag) {
  const std::size_t start = page.find("<" + tag + ">") + tag.size() + 2;
  const std::size_t end = page.find("</" + tag + ">", start);
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest = {};
  unsigned size = 0;
  EVP_Digest(page.data() + start, end - start, digest.data(), &size, EVP_sha256(), nullptr);
  return "'sha256-" + ToBase64(digest.data(), size) + "'";
}

// With headers that let the page load and run nothing but itself.
Reply PageReply() {
  static const std::string kPage = kPageHtml;
  static const std::string kPolicy =
      "default-src 'none'; connect-src 'self'; img-src data:; style-src " + HashOf(kPage, "style") +
      "; script-src " + HashOf(kPage, "script") + "; base-uri 'none'; form-action 'none'";
  Reply reply = LiveReply("text/html; charset=utf-8");
  reply.body = kPage;
  reply.headers.push_back({"Content-Security-Policy", kPolicy});
  return reply;
}

}  // namespace

std::map<std::string, std::function<Reply(const Call&)>> MonitorAnswers(Store& store) {
  return {{"/", [](const Call&) { return PageReply(); }},
          {"/events",
           [&store, run = RandomHex(8)](const Call& call) { return Events(store, run, call); }},
          {"/stream", [&store](const Call& call) { return News(store, call); }},
          {"/exchanges", [&store](const Call& call) { return Exchanges(store, call); }},
          {"/exchanges/ID", [&store](const Call& call) { return Exchange(store, call); }},
          {"/exchanges/ID/body", [&store](const Call& call) { return Body(store, call); }},
          {"/totals", [&store](const Call&) { return Totals(store); }},
          {"/chart", [&store](const Call& call) { return Chart(store, call); }},
          {"/paths", [](const Call&) { return ListOfPaths(); }}};
}
