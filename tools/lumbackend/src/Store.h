// What the back end keeps: reports whole, and every exchange, in ROOT/lumbackend.db.
#ifndef LUM_BACKEND_STORE_H
#define LUM_BACKEND_STORE_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "Database.h"
#include "Message.h"

// Writes on a thread of its own: what has come in while it wrote goes into one transaction. Reads
// by another connection beside it. Safe for several threads at once. The tables stand in
// tables.sql; the man page shows them.
class Store {
 public:
  // What became of a row: its number, or why it was not written.
  struct Written {
    std::int64_t id = 0;
    std::string problem;  // "" when it was
  };

  // Makes the database where it is missing and then takes the reports of ROOT/reports.jsonl over.
  // `keep` is the number of exchanges, and of reports, that newer ones do not push out. Throws
  // std::runtime_error.
  Store(const std::string& root, std::uint64_t keep);
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  // Both return when the transaction has ended. `columns` are those of `exchange` from `time` on.
  Task<Written> AddReport(std::string document);
  Task<Written> AddExchange(std::vector<Cell> columns) {
    return Submit(m_addExchange, std::move(columns));
  }

  // Number of the newest exchange.
  std::int64_t Last() const { return m_last; }

  // Returns when everything that was added before is written.
  void Drain();

  // The columns of the first row that a query yields with these values, none where it yields none.
  // Throws DatabaseError.
  std::vector<std::string> Read(const std::string& sql, const std::vector<Cell>& cells = {});

  const std::string& Path() const { return m_path; }
  std::uint64_t Keep() const { return m_keep; }

 private:
  struct Job {
    Query& query;
    std::vector<Cell> cells;
    std::function<void(const Written&)> done;
    Written written = {};
  };

  Task<Written> Submit(Query& query, std::vector<Cell> cells);
  void Work();
  void Commit(std::span<Job> jobs);
  bool Prune(std::size_t most);

  const std::string m_path;
  const std::uint64_t m_keep;
  Database m_database;
  Query m_addReport;
  Query m_addExchange;
  std::atomic<std::int64_t> m_last;
  std::mutex m_readMutex;
  Database m_reader;  // guarded by m_readMutex
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<Job> m_queue;  // guarded by m_mutex, like the two below
  bool m_busy = false;
  bool m_ending = false;
  std::thread m_thread;
};

#endif  // LUM_BACKEND_STORE_H
