#include "service/store/database.h"

#include <SQLiteCpp/Exception.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "service/store/schema.h"

namespace zqpool::service {

namespace {

// Marks a file as this service's state: "zqpd".
constexpr int application_id = 0x7a717064;
// How long a transaction waits for another program that has the file open; shorter at the start,
// when a user is waiting.
constexpr int busy_ms = 5000;
constexpr int busy_at_start_ms = 1000;

std::string system_error(int number) {
  return std::strerror(number);
}

/// Closes a descriptor at the end of its scope.
struct Descriptor {
  explicit Descriptor(int n) : number(n) {}
  ~Descriptor() {
    if (number >= 0) ::close(number);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number;
};

void sync_directory_of(const std::string& file) {
  const std::filesystem::path parent = std::filesystem::path(file).parent_path();
  const Descriptor directory(
      ::open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.number >= 0) ::fsync(directory.number);
}

std::int64_t number_of(SQLite::Database& database, const char* sql) {
  return database.execAndGet(sql).getInt64();
}

}  // namespace

Connection::Connection(const std::string& file, int busy)
    : database_(file, SQLite::OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, busy) {
  database_.exec("PRAGMA synchronous=FULL");
  database_.exec("PRAGMA foreign_keys=ON");
  database_.exec("PRAGMA trusted_schema=OFF");
}

std::unique_ptr<SQLite::Statement> Statement::take(Connection& db, const std::string& sql) {
  if (const auto it = db.idle_.find(sql); it != db.idle_.end()) {
    std::unique_ptr<SQLite::Statement> out = std::move(it->second);
    db.idle_.erase(it);
    return out;
  }
  return std::make_unique<SQLite::Statement>(db.database_, sql);
}

Statement::~Statement() {
  try {
    statement_->tryReset();
    statement_->clearBindings();
    db_.idle_.emplace(statement_->getQuery(), std::move(statement_));
  } catch (const std::exception&) {
    // Drop the statement; the next use prepares it again.
  }
}

Database::Database(const std::string& file, const std::function<void(Connection&)>& fill)
    : file_(file) {
  try {
    lock();
    open(fill);
  } catch (const SQLite::Exception& error) {
    close();
    switch (error.getErrorCode()) {
      case SQLITE_NOTADB:
      case SQLITE_CORRUPT:
        throw Database_Error("state '" + file_ +
                             "' is damaged or not a state file: " + error.what());
      case SQLITE_BUSY:
      case SQLITE_LOCKED:
        throw Database_Error("state '" + file_ + "' is locked by another process");
      case SQLITE_FULL:
        throw Database_Error("no space left for state '" + file_ + "'");
      default:
        throw Database_Error("cannot use state '" + file_ + "': " + error.what());
    }
  } catch (...) {
    close();
    throw;
  }
}

Database::~Database() {
  close();
}

void Database::close() noexcept {
  idle_.clear();  // the last connection folds the journal into the file
  if (lock_ >= 0) ::close(lock_);
}

// A separate lock file: SQLite's locks end with each transaction, and closing any descriptor of the
// database file would drop a lock on it.
void Database::lock() {
  const std::string name = file_ + ".lock";
  lock_ = ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (lock_ < 0) throw Database_Error("cannot create '" + name + "': " + system_error(errno));
  if (::flock(lock_, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) {
      throw Database_Error("cannot lock '" + name + "': " + system_error(errno));
    }
    std::array<char, 32> holder{};
    const ssize_t length = ::pread(lock_, holder.data(), holder.size() - 1, 0);
    const std::string process(holder.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    throw Database_Error("state '" + file_ + "' is in use by another zqpoold" +
                         (process.empty() ? "" : " (process " + process + ")"));
  }
  const std::string process = std::to_string(::getpid());
  if (::ftruncate(lock_, 0) == 0) {
    // Only for the message above, so a full disk is no reason to fail.
    [[maybe_unused]] const ssize_t written = ::pwrite(lock_, process.data(), process.size(), 0);
  }
}

void Database::make_file() {
  int file = ::open(file_.c_str(), O_RDWR | O_CLOEXEC);
  if (file < 0 && errno == ENOENT) {
    file = ::open(file_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file >= 0) sync_directory_of(file_);
  }
  const int error = errno;
  const Descriptor held(file);
  if (file < 0) throw Database_Error("cannot open state '" + file_ + "': " + system_error(error));
  struct stat status {};
  if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
    throw Database_Error("state '" + file_ + "' is not a regular file");
  }
  if ((status.st_mode & 077) != 0) {
    std::fprintf(stderr, "zqpoold: warning: state '%s' can be read by others (mode %03o)\n",
                 file_.c_str(), status.st_mode & 0777U);
  }
}

void Database::open(const std::function<void(Connection&)>& fill) {
  make_file();
  auto db = std::make_unique<Connection>(file_, busy_at_start_ms);
  SQLite::Database& database = db->database();

  // Look before touching anything: a foreign or newer file stays as it is.
  const std::int64_t mark = number_of(database, "PRAGMA application_id");
  const std::int64_t version = number_of(database, "PRAGMA user_version");
  const std::int64_t objects = number_of(database, "SELECT count(*) FROM sqlite_master");
  is_new_ = mark == 0 && version == 0 && objects == 0;
  if (!is_new_ && mark != application_id) {
    throw Database_Error("'" + file_ +
                         "' is the database of another program, not a state of zqpoold");
  }
  if (version > static_cast<std::int64_t>(schema_version)) {
    throw Database_Error("state '" + file_ + "' was written by a newer zqpoold (schema " +
                         std::to_string(version) + ", this one knows " +
                         std::to_string(schema_version) + ")");
  }
  if (!is_new_) {
    const std::string health = database.execAndGet("PRAGMA quick_check(1)").getString();
    if (health != "ok") throw Database_Error("state '" + file_ + "' is damaged: " + health);
  }
  const std::string journal = database.execAndGet("PRAGMA journal_mode=WAL").getString();
  if (journal != "wal") {
    throw Database_Error("the file system of state '" + file_ +
                         "' does not support a write-ahead log");
  }
  if (version < static_cast<std::int64_t>(schema_version)) {
    database.exec("BEGIN IMMEDIATE");
    for (auto step = static_cast<std::size_t>(version); step < schema_version; ++step) {
      database.exec(schema_steps[step]);
    }
    database.exec("PRAGMA application_id=" + std::to_string(application_id));
    database.exec("PRAGMA user_version=" + std::to_string(schema_version));
    if (is_new_ && fill) fill(*db);
    database.exec("COMMIT");
  }
  database.setBusyTimeout(busy_ms);
  idle_.push_back(std::move(db));
}

std::unique_ptr<Connection> Database::take() {
  {
    const std::lock_guard<std::mutex> hold(mutex_);
    if (!idle_.empty()) {
      std::unique_ptr<Connection> out = std::move(idle_.back());
      idle_.pop_back();
      return out;
    }
  }
  return std::make_unique<Connection>(file_, busy_ms);
}

void Database::give_back(std::unique_ptr<Connection> db) {
  const std::lock_guard<std::mutex> hold(mutex_);
  idle_.push_back(std::move(db));
}

Transaction Database::begin(Access access) {
  return Transaction(*this, access);
}

Transaction::Transaction(Database& database, Access access)
    : database_(&database),
      writer_(access == Access::write ? std::unique_lock(database.writer_)
                                      : std::unique_lock<std::mutex>()),
      db_(database.take()) {
  db_->execute(access == Access::write ? "BEGIN IMMEDIATE" : "BEGIN");
}

Transaction::~Transaction() {
  if (!db_) return;
  if (open_ && sqlite3_get_autocommit(db_->database().getHandle()) == 0) {
    try {
      db_->execute("ROLLBACK");
    } catch (const std::exception&) {
      return;  // a connection that cannot even roll back is dropped, which does roll back
    }
  }
  database_->give_back(std::move(db_));
}

void Transaction::commit() {
  db_->execute("COMMIT");
  open_ = false;
}

}  // namespace zqpool::service
