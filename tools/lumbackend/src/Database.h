// SQLite with C++'s manners.
#ifndef LUM_BACKEND_DATABASE_H
#define LUM_BACKEND_DATABASE_H

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// What SQLite could not do, in its words.
struct DatabaseError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Bytes that need not be text.
struct Blob {
  std::string bytes;
};
using Cell = std::variant<std::int64_t, std::string, Blob>;

// One connection to a database file. One thread at a time uses it and its queries.
class Database {
 public:
  // Makes the file where it is missing. Throws DatabaseError, like everything below.
  explicit Database(const std::string& path);

  // Runs statements that yield nothing.
  void Run(const std::string& sql) const;

  // Takes back what was done since BEGIN, where there was one.
  void RollBack() const noexcept;

 private:
  friend class Query;
  std::unique_ptr<sqlite3, decltype(&sqlite3_close)> m_handle{nullptr, &sqlite3_close};
};

// One statement, which may be run again and again. The database must outlive it.
class Query {
 public:
  // With these values in place of ?1, ?2 ...
  Query(const Database& database, const std::string& sql, const std::vector<Cell>& cells = {});

  // Goes to the next row. False: there is none.
  bool Next();

  // Starts anew with these values and runs to the end. Returns the first number of the first row,
  // or 0.
  std::int64_t Run(const std::vector<Cell>& cells = {});

  // Columns of the row, counted from 0, none without a row. Text is good until the next step.
  int Columns() const;
  std::int64_t Number(int column) const;
  std::string_view Text(int column) const;

 private:
  void Bind(const std::vector<Cell>& cells);

  const Database& m_database;
  std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> m_statement{nullptr,
                                                                         &sqlite3_finalize};
};

#endif  // LUM_BACKEND_DATABASE_H
