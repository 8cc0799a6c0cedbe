// What the database tells about exchanges and reports, as JSON.
#ifndef LUM_BACKEND_HISTORY_H
#define LUM_BACKEND_HISTORY_H

#include <cstdint>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Database.h"

// Which exchanges are asked for. What is empty does not matter.
struct Filter {
  std::string text;  // words, or beginnings of words; all must occur
  std::string kind;
  std::string status;  // its first digit
  std::string device;
  std::string topic;
  std::int64_t since = 0;  // numbers above it alone
};

// Reads beside the thread that writes. Safe for several threads at once. Everything throws
// DatabaseError.
class History {
 public:
  static constexpr std::int64_t kEnd = std::numeric_limits<std::int64_t>::max();

  explicit History(const std::string& path) : m_database(path) {}

  // Exchanges numbered between the two, newest first: a JSON array of at most `limit`, the newest
  // of them or the oldest.
  struct Rows {
    std::string json;
    std::int64_t newest = 0;  // number of the first one
    std::int64_t oldest = 0;  // of the last one
    bool more = false;
  };
  Rows Find(const Filter& filter, std::int64_t after, std::int64_t before, std::int64_t limit,
            bool fromOldest = false);

  // How many pass the filter. Second: false when there are more.
  std::pair<std::int64_t, bool> Count(const Filter& filter);

  // {"all", "kinds", "database"}: how many of each kind, and the name of the database.
  std::string Totals();

  // Devices or topics that occur most, as a JSON array.
  std::string Frequent(const std::string& column);

  // One exchange whole, or "".
  std::string Exchange(std::int64_t id);

  // What is kept of the body of one exchange's request. False: there is none.
  bool Body(std::int64_t id, std::string& body, bool& isText);

  // For each step of `milliseconds` from `from` on: all, reports, refusals.
  std::string Chart(std::int64_t from, std::int64_t milliseconds, std::int64_t steps);

  // Reports behind number `after`, a line each, until there is enough for one piece; `after` moves
  // on. "" at the end.
  std::string Reports(std::int64_t& after);

  // {"last", "events": [...]}: up to 200 reports, uploads and refusals behind number `after`.
  std::string Events(std::int64_t after, const std::string& run);

 private:
  std::string One(const std::string& sql, const std::vector<Cell>& cells);

  std::mutex m_mutex;
  Database m_database;  // guarded by m_mutex
};

#endif  // LUM_BACKEND_HISTORY_H
