// Queries. SQLite writes the JSON itself.
#include "History.h"

#include <algorithm>
#include <cctype>

#include "Text.h"

namespace {

constexpr std::int64_t kMostCounted = 10'000;  // exchanges that hold words
constexpr std::size_t kPiece = 262144;         // bytes of reports at once
constexpr char kPrivate[] = "\xEE\x80\x80";    // U+E000, see the index of words

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

std::string Hex(const std::string& text) {
  return ToHex(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

// A byte of a word; what SQLite's tokenizer takes for a blank must not be in one.
bool IsWordByte(const std::string& text, std::size_t at) {
  const auto byte = static_cast<unsigned char>(text[at]);
  return byte >= 0x80 || std::isalnum(byte) != 0;
}

// The filter as an expression for the index of words, "" when it lets everything pass.
std::string Expression(const Filter& filter) {
  std::string expression;
  const auto demand = [&](const std::string& word, const char* end) {
    expression += (expression.empty() ? "\"" : " AND \"") + word + end;
  };
  const std::pair<const char*, std::string> kFacets[] = {
      {"k", filter.kind},
      {"s", filter.status},
      {"d", filter.device.empty() ? "" : Hex(filter.device)},
      {"t", filter.topic.empty() ? "" : Hex(filter.topic)}};
  for (const auto& [letter, value] : kFacets) {
    if (!value.empty()) {
      demand(kPrivate + (letter + value), "\"");
    }
  }
  for (std::size_t at = 0; at < filter.text.size();) {
    std::string word;
    for (; at < filter.text.size() && IsWordByte(filter.text, at); ++at) {
      word += filter.text[at];
    }
    if (!word.empty()) {
      demand(word, "\" *");
    } else {
      ++at;
    }
  }
  return expression;
}

}  // namespace

History::Rows History::Find(const Filter& filter, std::int64_t after, std::int64_t before,
                            std::int64_t limit, bool fromOldest) {
  const std::string expression = Expression(filter);
  const std::string order = fromOldest ? "ASC" : "DESC";
  const std::string which =
      expression.empty()
          ? "id > ?2 AND id < ?3"
          : "id IN (SELECT rowid FROM search WHERE search MATCH ?1 AND rowid > ?2 AND rowid < ?3 "
            "ORDER BY rowid " +
                order + " LIMIT ?4 + 1)";
  const std::string found = "SELECT id, json_object(" + std::string(kRow) +
                            ") AS row FROM exchange WHERE " + which + " ORDER BY id " + order;
  const std::lock_guard<std::mutex> lock(m_mutex);
  Query query(m_database, "WITH found AS (" + found +
                              " LIMIT ?4 + 1), page AS (SELECT * FROM found " + "ORDER BY id " +
                              order + " LIMIT ?4) " +
                              "SELECT json_group_array(json(row)), max(id), min(id), "
                              "(SELECT count(*) FROM found) > ?4 "
                              "FROM (SELECT * FROM page ORDER BY id DESC)");
  query.With({expression, std::max(after, filter.since), before, limit}).Next();
  return {std::string(query.Text(0)), query.Number(1), query.Number(2), query.Number(3) != 0};
}

std::pair<std::int64_t, bool> History::Count(const Filter& filter) {
  const bool tallied = filter.text.empty() && filter.since == 0;
  const std::string expression = Expression(filter);
  const std::lock_guard<std::mutex> lock(m_mutex);
  Query query(m_database,
              tallied ? "SELECT ifnull(sum(n), 0) FROM tally WHERE (?1 = '' OR kind = ?1) AND "
                        "(?2 = '' OR class = ?2) AND (?3 = '' OR device = ?3) AND "
                        "(?4 = '' OR topic = ?4)"
              : expression.empty()
                  ? "SELECT count(*) FROM (SELECT ?1 FROM exchange WHERE id > ?3 LIMIT ?2)"
                  : "SELECT count(*) FROM (SELECT 1 FROM search WHERE search MATCH ?1 AND "
                    "rowid > ?3 LIMIT ?2)");
  if (tallied) {
    query.With({filter.kind, filter.status, filter.device, filter.topic});
  } else {
    query.With({expression, kMostCounted + 1, filter.since});
  }
  query.Next();
  const std::int64_t count = query.Number(0);
  return !tallied && count > kMostCounted ? std::pair(kMostCounted, false) : std::pair(count, true);
}

std::string History::Totals() {
  return One(
      "SELECT json_object('all', ifnull(sum(n), 0), 'kinds', json_group_object(kind, n), "
      "'database', (SELECT name FROM identity)) "
      "FROM (SELECT kind, sum(n) AS n FROM tally GROUP BY kind)",
      {});
}

std::string History::Frequent(const std::string& column) {
  return One("SELECT json_group_array(" + column + ") FROM (SELECT " + column +
                 " FROM tally WHERE " + column + " <> '' GROUP BY " + column +
                 " ORDER BY sum(n) DESC LIMIT 100)",
             {});
}

std::string History::Exchange(std::int64_t id) {
  return One("SELECT json_object(" + std::string(kRow) + kMore + ") FROM exchange WHERE id = ?1",
             {id});
}

bool History::Body(std::int64_t id, std::string& body, bool& isText) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  Query query(m_database,
              "SELECT ifnull((SELECT document FROM report WHERE id = exchange.report), body) "
              "FROM exchange WHERE id = ?1");
  if (!query.With({id}).Next()) {
    return false;
  }
  body = query.Text(0);
  isText = !query.IsBlob(0);
  return true;
}

std::string History::Chart(std::int64_t from, std::int64_t milliseconds, std::int64_t steps) {
  return One(
      "WITH RECURSIVE step(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM step WHERE i + 1 < ?3), "
      "beat AS (SELECT (time - ?1) / ?2 AS i, count(*) AS n, sum(kind = 'report') AS reports, "
      "sum(kind = 'refusal') AS refusals FROM exchange WHERE time >= ?1 GROUP BY 1) "
      "SELECT json_object('from', ?1, 'step', ?2, 'reports', json_group_array(ifnull(reports, 0)), "
      "'refusals', json_group_array(ifnull(refusals, 0)), 'all', json_group_array(ifnull(n, 0))) "
      "FROM (SELECT * FROM step LEFT JOIN beat USING (i) ORDER BY i)",
      {from, milliseconds, steps});
}

std::string History::Reports(std::int64_t& after) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  Query query(m_database, "SELECT id, document FROM report WHERE id > ?1 ORDER BY id");
  query.With({after});
  std::string lines;
  while (lines.size() < kPiece && query.Next()) {
    after = query.Number(0);
    lines.append(query.Text(1)).append("\n");
  }
  return lines;
}

std::string History::Events(std::int64_t after, const std::string& run) {
  const std::string facet = "\"" + std::string(kPrivate) + "k";
  return One(
      "SELECT json_object('run', ?3, 'last', max(?2, ifnull(max(id), 0)), 'events', "
      "json_group_array(json(event))) FROM (SELECT id, json_object('id', id, 'time', time, "
      "'kind', kind, 'method', method, 'path', path, 'text', "
      "CASE kind WHEN 'refusal' THEN refusal WHEN 'upload' THEN object ELSE text END, "
      "'status', status, 'bytes', bytes_in) AS event FROM (SELECT * FROM exchange WHERE id IN "
      "(SELECT rowid FROM search WHERE search MATCH ?1 AND rowid > ?2 ORDER BY rowid DESC "
      "LIMIT 200) ORDER BY id))",
      {facet + "report\" OR " + facet + "upload\" OR " + facet + "refusal\"", after, run});
}

std::string History::One(const std::string& sql, const std::vector<Cell>& cells) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  Query query(m_database, sql);
  return query.With(cells).Next() ? std::string(query.Text(0)) : std::string();
}
