// Calls of SQLite.
#include "Database.h"

namespace {

constexpr int kPatience = 5000;  // milliseconds for somebody who uses the file by hand

void Require(bool done, sqlite3* handle) {
  if (!done) {
    throw DatabaseError(sqlite3_errmsg(handle));
  }
}

}  // namespace

Database::Database(const std::string& path) {
  sqlite3* handle = nullptr;
  const int result =
      sqlite3_open_v2(path.c_str(), &handle,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  m_handle.reset(handle);
  Require(result == SQLITE_OK, handle);
  sqlite3_busy_timeout(handle, kPatience);
}

void Database::Run(const std::string& sql) const {
  Require(sqlite3_exec(m_handle.get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK,
          m_handle.get());
}

void Database::RollBack() const noexcept {
  sqlite3_exec(m_handle.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

Query::Query(const Database& database, const std::string& sql, const std::vector<Cell>& cells)
    : m_database(database) {
  sqlite3_stmt* statement = nullptr;
  const int result = sqlite3_prepare_v2(database.m_handle.get(), sql.c_str(),
                                        static_cast<int>(sql.size()), &statement, nullptr);
  m_statement.reset(statement);
  Require(result == SQLITE_OK, database.m_handle.get());
  Bind(cells);
}

void Query::Bind(const std::vector<Cell>& cells) {
  sqlite3_stmt* statement = m_statement.get();
  int place = 0;
  for (const Cell& cell : cells) {
    ++place;
    int result = SQLITE_OK;
    if (const auto* number = std::get_if<std::int64_t>(&cell)) {
      result = sqlite3_bind_int64(statement, place, *number);
    } else if (const auto* text = std::get_if<std::string>(&cell)) {
      result = sqlite3_bind_text64(statement, place, text->data(), text->size(), SQLITE_TRANSIENT,
                                   SQLITE_UTF8);
    } else {
      const std::string& bytes = std::get<Blob>(cell).bytes;
      result = sqlite3_bind_blob64(statement, place, bytes.data(), bytes.size(), SQLITE_TRANSIENT);
    }
    Require(result == SQLITE_OK, m_database.m_handle.get());
  }
}

bool Query::Next() {
  const int result = sqlite3_step(m_statement.get());
  Require(result == SQLITE_ROW || result == SQLITE_DONE, m_database.m_handle.get());
  return result == SQLITE_ROW;
}

std::int64_t Query::Run(const std::vector<Cell>& cells) {
  sqlite3_reset(m_statement.get());
  Bind(cells);
  const std::int64_t number = Next() ? Number(0) : 0;
  while (Columns() > 0 && Next()) {
  }
  sqlite3_reset(m_statement.get());
  return number;
}

int Query::Columns() const {
  return sqlite3_data_count(m_statement.get());
}

std::int64_t Query::Number(int column) const {
  return sqlite3_column_int64(m_statement.get(), column);
}

std::string_view Query::Text(int column) const {
  const void* bytes = sqlite3_column_blob(m_statement.get(), column);
  const int size = sqlite3_column_bytes(m_statement.get(), column);
  return {static_cast<const char*>(bytes), static_cast<std::size_t>(size)};
}
