#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <utility>

namespace CryptStand {

class Database;

/// One prepared SQL statement. Values are bound in order, columns are read in order.
///
/// After a failure the statement stays unusable: Bind() does nothing, Next() and Run() return false. On
/// destruction it ends what it runs and goes back to its database, which it must not outlive, for the next
/// use of the same SQL.
class Statement {
 public:
  Statement(Statement&&) noexcept = default;
  Statement& operator=(Statement&&) = delete;
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement();

  Statement& Bind(const std::string& text);
  Statement& Bind(std::int64_t number);
  /// True while there is a row to read.
  bool Next();
  /// Runs a statement that returns no rows. True on success.
  bool Run();

  std::string Text(int column) const;
  std::int64_t Number(int column) const;

 private:
  friend class Database;
  using Pointer = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;
  /// By their SQL. The node of a statement that is in use is out of the map.
  using Map = std::map<std::string, Pointer, std::less<>>;

  Statement(Map& idle, Map::node_type node) : idle_(idle), node_(std::move(node)), good_(!node_.empty()) {}
  sqlite3_stmt* Get() const { return node_.empty() ? nullptr : node_.mapped().get(); }

  Map& idle_;
  Map::node_type node_;  // empty after a failure to prepare, and when moved from
  int bound_ = 0;
  bool good_;
};

/// Owns a connection to an SQLite database and its prepared statements: SQL is parsed at its first use. One
/// thread at a time.
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
    if (!Prepare("BEGIN IMMEDIATE").Run()) return false;
    if (change() && Prepare("COMMIT").Run()) return true;
    Prepare("ROLLBACK").Run();
    return false;
  }
  /// The statement for one SQL command. Two with the same SQL may be in use at the same time.
  Statement Prepare(const char* sql);
  /// Number of rows that the latest statement changed.
  int Changes() const { return sqlite3_changes(database_.get()); }

 private:
  std::unique_ptr<sqlite3, decltype(&sqlite3_close)> database_;
  Statement::Map idle_;  // destroyed before the connection, which cannot be closed while it has statements
};

}  // namespace CryptStand
