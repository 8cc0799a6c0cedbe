// The indexes, and the thread that writes.
#include "Store.h"

#include <algorithm>
#include <boost/algorithm/string/replace.hpp>
#include <cstdio>
#include <fstream>
#include <memory>
#include <utility>

#include "Boost.h"
#include "Embedded.h"

namespace asio = boost::asio;

namespace {

constexpr std::size_t kLeastPruned = 1000;  // rows at once, of which there may be a million

// For a table *: all rows but the newest ?1 are too old, ?2 of them go.
constexpr char kPrune[] =
    "DELETE FROM * WHERE id IN (SELECT id FROM * WHERE id <= (SELECT max(id) - ?1 FROM *) "
    "ORDER BY id LIMIT ?2) RETURNING id";

// A name by which readers tell databases apart, counts by what can be filtered for, and the index
// of words: texts, and what can be filtered for in words that nobody types, which begin with a
// letter for private use. Beginnings of words that are shorter than almost all words are indexed:
// looking for a longer one merges the rows of all words that begin so.
constexpr char kIndexes[] = R"(
CREATE TABLE identity AS SELECT hex(randomblob(8)) AS name;
CREATE INDEX exchange_time ON exchange (time, kind);
CREATE TABLE tally (
  kind TEXT, class INTEGER, device TEXT, topic TEXT, n INTEGER,
  PRIMARY KEY (kind, class, device, topic)) WITHOUT ROWID;
CREATE VIRTUAL TABLE search USING fts5(words, content='', detail=none,
  prefix='1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16');
CREATE VIEW words AS SELECT id,
  char(57344) || 'k' || kind || ' ' || char(57344) || 's' || (status / 100) || ' ' ||
  char(57344) || 'd' || hex(device) || ' ' || char(57344) || 't' || hex(topic) || ' ' ||
  path || ' ' || query || ' ' || device || ' ' || topic || ' ' || object || ' ' || refusal || ' ' ||
  CASE WHEN report > 0
    THEN ifnull((SELECT substr(document, 1, 65536) FROM report WHERE id = exchange.report), '')
    WHEN typeof(body) = 'text' THEN body ELSE '' END AS words FROM exchange;
CREATE TRIGGER exchange_added AFTER INSERT ON exchange BEGIN
  INSERT INTO tally VALUES (new.kind, new.status / 100, new.device, new.topic, 1)
    ON CONFLICT DO UPDATE SET n = n + 1;
  INSERT INTO search (rowid, words) SELECT id, words FROM words WHERE id = new.id;
END;
CREATE TRIGGER exchange_removed BEFORE DELETE ON exchange BEGIN
  UPDATE tally SET n = n - 1 WHERE kind = old.kind AND class = old.status / 100
    AND device = old.device AND topic = old.topic;
  DELETE FROM tally WHERE kind = old.kind AND class = old.status / 100
    AND device = old.device AND topic = old.topic AND n = 0;
  INSERT INTO search (search, rowid, words)
    SELECT 'delete', id, words FROM words WHERE id = old.id;
END;
)";

// Reports of a root whose reports were lines of a file.
void TakeOver(const Database& database, const std::string& file) {
  std::ifstream lines(file);
  Query add(database, "INSERT INTO report (document) SELECT ?1 WHERE json_valid(?1)");
  for (std::string line; std::getline(lines, line);) {
    add.Run({line});
  }
}

// Opens the database and makes its tables where it is new.
Database Open(const std::string& root) try {
  Database database(root + "/lumbackend.db");
  database.Run("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;");
  if (Query(database, "PRAGMA user_version").Run() == 0) {
    const std::string old = root + "/reports.jsonl";
    database.Run(std::string("BEGIN IMMEDIATE;") + kTablesSql + kIndexes);
    TakeOver(database, old);
    database.Run("PRAGMA user_version = 1; COMMIT;");
    // Whoever still looks for it there is to see that it has an end.
    (void)std::rename(old.c_str(), (old + ".old").c_str());
  }
  return database;
} catch (const DatabaseError& failure) {
  throw DatabaseError("cannot use '" + root + "/lumbackend.db': " + failure.what());
}

}  // namespace

Store::Store(const std::string& root, std::uint64_t keep)
    : m_path(root + "/lumbackend.db"),
      m_keep(keep),
      m_database(Open(root)),
      m_addReport(m_database, "INSERT INTO report (document) VALUES (?1) RETURNING id"),
      m_addExchange(m_database,
                    "INSERT INTO exchange VALUES (NULL, ?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, "
                    "?11, ?12, ?13, ?14, ?15, ?16, ?17, ?18, ?19, ?20, ?21, ?22, ?23, ?24, ?25, "
                    "?26) RETURNING id"),
      m_last(Query(m_database, "SELECT max(id) FROM exchange").Run()),
      m_reader(m_path),
      m_thread([this] { Work(); }) {}

Store::~Store() {
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_ending = true;
  }
  m_changed.notify_all();
  m_thread.join();
}

Task<Store::Written> Store::AddReport(std::string document) {
  std::vector<Cell> cells;
  cells.emplace_back(std::move(document));
  return Submit(m_addReport, std::move(cells));
}

std::vector<std::string> Store::Read(const std::string& sql, const std::vector<Cell>& cells) {
  const std::lock_guard<std::mutex> lock(m_readMutex);
  Query query(m_reader, sql, cells);
  query.Next();
  std::vector<std::string> columns;
  columns.reserve(static_cast<std::size_t>(query.Columns()));
  for (int i = 0; i < query.Columns(); ++i) {
    columns.emplace_back(query.Text(i));
  }
  return columns;
}

void Store::Drain() {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_changed.wait(lock, [this] { return m_queue.empty() && !m_busy; });
}

Task<Store::Written> Store::Submit(Query& query, std::vector<Cell> cells) {
  return asio::async_initiate<const asio::use_awaitable_t<>, void(Written)>(
      [this, &query](auto handler, std::vector<Cell> row) {
        auto shared = std::make_shared<decltype(handler)>(std::move(handler));
        const auto done = [shared](const Written& written) {
          asio::post(asio::get_associated_executor(*shared),
                     [shared, written] { (*shared)(written); });
        };
        // Where no strand holds it back, the task may go on, and free what this function has
        // captured, as soon as the lock is gone.
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_queue.push_back({query, std::move(row), done, {}});
        m_changed.notify_all();
      },
      asio::use_awaitable, std::move(cells));
}

// The thread that writes.
void Store::Work() {
  bool prune = true;
  std::unique_lock<std::mutex> lock(m_mutex);
  for (;;) {
    m_changed.wait(lock, [&] { return !m_queue.empty() || m_ending || prune; });
    std::vector<Job> batch = std::exchange(m_queue, {});
    if (batch.empty() && m_ending) {
      return;
    }
    m_busy = true;
    lock.unlock();
    Commit(batch);
    prune = Prune(std::max(kLeastPruned, 2 * batch.size()));
    for (const Job& job : batch) {
      job.done(job.written);
    }
    lock.lock();
    m_busy = false;
    m_changed.notify_all();
  }
}

// Writes in one transaction. Where that fails each job gets one of its own: what one of them lacks
// room for must not be the end of the others.
void Store::Commit(std::span<Job> jobs) {
  std::string problem;
  try {
    std::int64_t last = m_last;
    m_database.Run("BEGIN IMMEDIATE");
    for (Job& job : jobs) {
      job.written = {job.query.Run(job.cells), ""};
      if (&job.query == &m_addExchange) {
        last = job.written.id;
      }
    }
    m_database.Run("COMMIT");
    m_last = last;
    return;
  } catch (const DatabaseError& failure) {
    problem = failure.what();
  }
  m_database.RollBack();
  for (Job& job : jobs) {
    job.written = {0, problem};
    if (jobs.size() > 1) {
      Commit({&job, 1});
    }
  }
}

// Removes some of the rows that are too old. True: there are more.
bool Store::Prune(std::size_t most) {
  try {
    bool removed = false;
    m_database.Run("BEGIN IMMEDIATE");
    // Exchanges first: the index of words still needs their reports.
    for (const char* table : {"exchange", "report"}) {
      Query query(m_database, boost::algorithm::replace_all_copy(std::string(kPrune), "*", table));
      removed =
          query.Run({static_cast<std::int64_t>(m_keep), static_cast<std::int64_t>(most)}) > 0 ||
          removed;
    }
    m_database.Run("COMMIT");
    return removed;
  } catch (const DatabaseError&) {
    m_database.RollBack();  // the next batch comes by here, too
    return false;
  }
}
