// A thin layer over SQLite's C interface, used by Store alone: statements with bound values that are prepared
// once, and a database file that only its owner can read.
#include "stand/database.h"

#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace CryptStand {
namespace {

constexpr int kBusyMs = 10000;  // another process may lock the file for the time of one change

// SQLite creates its files (journals too) with the mode of the database file, so that one is created first.
bool MakePrivateFile(const std::string& path, std::string& error) {
  const int handle = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (handle < 0) {
    error = path + ": " + std::generic_category().message(errno);
    return false;
  }
  close(handle);
  return true;
}

}  // namespace

// A statement that was not run to its end would keep its transaction open, and bound values would be those of
// the next user who binds fewer.
Statement::~Statement() {
  if (node_.empty()) return;
  sqlite3_reset(Get());
  sqlite3_clear_bindings(Get());
  // If one with the same SQL is there already, this one is finalized.
  idle_.insert(std::move(node_));
}

Statement& Statement::Bind(const std::string& text) {
  good_ = good_ && sqlite3_bind_text64(Get(), ++bound_, text.data(), text.size(), SQLITE_TRANSIENT,
                                       SQLITE_UTF8) == SQLITE_OK;
  return *this;
}

Statement& Statement::Bind(std::int64_t number) {
  good_ = good_ && sqlite3_bind_int64(Get(), ++bound_, number) == SQLITE_OK;
  return *this;
}

bool Statement::Next() {
  const int result = good_ ? sqlite3_step(Get()) : SQLITE_ERROR;
  good_ = result == SQLITE_ROW || result == SQLITE_DONE;
  return result == SQLITE_ROW;
}

bool Statement::Run() {
  while (Next()) {
  }
  return good_;
}

std::string Statement::Text(int column) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(Get(), column));
  const int size = sqlite3_column_bytes(Get(), column);
  return text != nullptr ? std::string(text, static_cast<std::size_t>(size)) : std::string();
}

std::int64_t Statement::Number(int column) const {
  return sqlite3_column_int64(Get(), column);
}

Statement Database::Prepare(const char* sql) {
  const auto found = idle_.find(std::string_view(sql));
  if (found != idle_.end()) return {idle_, idle_.extract(found)};
  sqlite3_stmt* raw = nullptr;
  const int result = sqlite3_prepare_v3(database_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &raw, nullptr);
  if (result != SQLITE_OK) return {idle_, {}};
  Statement::Map fresh;
  fresh.emplace(sql, Statement::Pointer(raw, sqlite3_finalize));
  return {idle_, fresh.extract(fresh.begin())};
}

bool Database::Open(const std::string& path, std::string& error) {
  if (!path.empty() && !MakePrivateFile(path, error)) return false;
  sqlite3* raw = nullptr;
  const char* name = path.empty() ? ":memory:" : path.c_str();
  const int result = sqlite3_open_v2(name, &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  database_.reset(raw);
  if (result != SQLITE_OK) {
    error = path + ": " + sqlite3_errstr(result);
    return false;
  }
  sqlite3_busy_timeout(database_.get(), kBusyMs);
  return true;
}

bool Database::Execute(const char* sql, std::string& error) {
  if (sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK) return true;
  error = sqlite3_errmsg(database_.get());
  return false;
}

}  // namespace CryptStand
