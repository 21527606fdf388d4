#pragma once

#include <cstdint>
#include <memory>
#include <sqlite3.h>
#include <string>

namespace CryptStand {

/// One prepared SQL statement. Values are bound in order, columns are read in order.
///
/// After a failure the statement stays unusable: Bind() does nothing, Next() and Run() return false. It owns
/// the SQLite statement and must not outlive the database.
class Statement {
 public:
  Statement(sqlite3* database, const char* sql);

  Statement& Bind(const std::string& text);
  Statement& Bind(std::int64_t number);
  /// True while there is a row to read.
  bool Next();
  /// Runs a statement that returns no rows. True on success.
  bool Run();

  std::string Text(int column) const;
  std::int64_t Number(int column) const;

 private:
  std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> statement_;
  int bound_ = 0;
  bool good_;
};

/// Owns a connection to an SQLite database. One thread at a time.
class Database {
 public:
  Database() : database_(nullptr, sqlite3_close) {}

  /// Opens the file, which is created with mode 0600 if it does not exist; an empty path opens a database in
  /// memory. False with the reason in `error`.
  bool Open(const std::string& path, std::string& error);
  /// Runs statements without values. False with the reason in `error`.
  bool Execute(const char* sql, std::string& error);
  /// Runs `change` in a transaction, which is rolled back if it returns false. True when it was committed.
  template <class Change>
  bool Transact(const Change& change) {
    std::string error;
    if (!Execute("BEGIN IMMEDIATE", error)) return false;
    if (change() && Execute("COMMIT", error)) return true;
    Execute("ROLLBACK", error);
    return false;
  }
  Statement Prepare(const char* sql) { return {database_.get(), sql}; }
  /// Number of rows that the latest statement changed.
  int Changes() const { return sqlite3_changes(database_.get()); }

 private:
  std::unique_ptr<sqlite3, decltype(&sqlite3_close)> database_;
};

}  // namespace CryptStand
