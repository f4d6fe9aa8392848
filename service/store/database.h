#pragma once

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace zqpool::service {

class Statement;

/// A connection to the database, for handlers inside a transaction. Used by one thread at a time.
/// Throws SQLite::Exception when the database fails; the transaction is then rolled back by its
/// owner.
class Connection {
 public:
  /// Opens one more connection to an existing file.
  Connection(const std::string& file, int busy_ms);

  /// Runs a statement that gives no rows; returns how many rows it changed. Arguments are bound in
  /// order: integers, texts, optionals of either (absent: null).
  template <typename... Args>
  int execute(const std::string& sql, const Args&... args);

  /// Whether a SELECT gives any row.
  template <typename... Args>
  bool has_row(const std::string& sql, const Args&... args);

  /// The first column of a SELECT's first row; 0 when there is no row.
  template <typename... Args>
  std::int64_t integer(const std::string& sql, const Args&... args);

  SQLite::Database& database() { return database_; }

 private:
  friend class Statement;

  SQLite::Database database_;
  /// Prepared statements that are not in use, by their text.
  std::multimap<std::string, std::unique_ptr<SQLite::Statement>> idle_;
};

/// A statement and, for a SELECT, its rows. The connection keeps it prepared for the next use; the
/// same text may be in use several times at once.
class Statement {
 public:
  template <typename... Args>
  Statement(Connection& db, const std::string& sql, const Args&... args)
      : db_(db), statement_(take(db, sql)) {
    int index = 0;
    (bind(++index, args), ...);
  }
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  /// Steps to the next row; false after the last one.
  bool next() { return statement_->executeStep(); }
  /// A column is an index from 0 or a name, which the SELECT must give with AS.
  template <typename Column>
  std::string text(Column column) const {
    return statement_->getColumn(column).getString();
  }
  template <typename Column>
  std::int64_t integer(Column column) const {
    return statement_->getColumn(column).getInt64();
  }
  template <typename Column>
  bool is_null(Column column) const {
    return statement_->isColumnNull(column);
  }
  /// Runs a statement that gives no rows; returns how many rows it changed.
  int run() { return statement_->exec(); }

 private:
  static std::unique_ptr<SQLite::Statement> take(Connection& db, const std::string& sql);

  template <typename T>
  void bind(int index, const std::optional<T>& value) {
    if (value) {
      bind(index, *value);
    } else {
      statement_->bind(index);
    }
  }
  void bind(int index, const std::string& value) { statement_->bind(index, value); }
  void bind(int index, const char* value) { statement_->bind(index, value); }
  template <typename T, typename = std::enable_if_t<std::is_integral_v<T>>>
  void bind(int index, T value) {
    statement_->bind(index, static_cast<std::int64_t>(value));
  }

  Connection& db_;
  std::unique_ptr<SQLite::Statement> statement_;
};

template <typename... Args>
int Connection::execute(const std::string& sql, const Args&... args) {
  return Statement(*this, sql, args...).run();
}

template <typename... Args>
bool Connection::has_row(const std::string& sql, const Args&... args) {
  return Statement(*this, sql, args...).next();
}

template <typename... Args>
std::int64_t Connection::integer(const std::string& sql, const Args&... args) {
  Statement row(*this, sql, args...);
  return row.next() ? row.integer(0) : 0;
}

/// Thrown when the database cannot be opened; the text says why and names the file.
class Database_Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class Access { read, write };

class Transaction;

/// The service's state: one SQLite file, used by one service at a time.
///
/// Uses a write-ahead log with synchronous=FULL: a commit returns once the log is on disk, and
/// readers never wait for a writer. Writers run one after another. Thread-safe.
class Database {
 public:
  /// Opens or creates the file (mode 0600) and brings its schema up to date; `fill` writes the
  /// content of a new state. All of this is one transaction: a failure leaves the file as it was.
  /// Throws Database_Error, or what `fill` throws.
  explicit Database(const std::string& file, const std::function<void(Connection&)>& fill = {});
  /// Merges the log into the file. All transactions must have ended.
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// Whether the constructor created the state.
  bool is_new() const { return is_new_; }
  const std::string& file() const { return file_; }

  /// Begins a transaction; a writer waits for the one before it. Throws SQLite::Exception.
  Transaction begin(Access access);

 private:
  friend class Transaction;

  void lock();
  void open(const std::function<void(Connection&)>& fill);
  void make_file();
  void close() noexcept;
  std::unique_ptr<Connection> take();
  void give_back(std::unique_ptr<Connection> db);

  std::string file_;
  int lock_ = -1;
  bool is_new_ = false;
  std::mutex writer_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<Connection>> idle_;
};

/// An open transaction: rolled back at the end of its scope unless committed.
class Transaction {
 public:
  Transaction(Transaction&&) = default;
  Transaction& operator=(Transaction&&) = delete;
  ~Transaction();

  Connection& db() { return *db_; }
  /// Returns once the changes are on disk. Throws SQLite::Exception; nothing is kept then.
  void commit();

 private:
  friend class Database;
  Transaction(Database& database, Access access);

  Database* database_;
  std::unique_lock<std::mutex> writer_;
  std::unique_ptr<Connection> db_;
  bool open_ = true;
};

}  // namespace zqpool::service
