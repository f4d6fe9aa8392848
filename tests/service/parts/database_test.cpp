#include "service/store/database.h"

#include <SQLiteCpp/Exception.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "service/store/schema.h"
#include "tests/support/temp_directory.h"

namespace zqpool::service {
namespace {

using testing::HasSubstr;

std::string content_of(const std::string& file) {
  std::ostringstream out;
  out << std::ifstream(file, std::ios::binary).rdbuf();
  return out.str();
}

unsigned mode_of(const std::string& file) {
  struct stat status {};
  EXPECT_EQ(stat(file.c_str(), &status), 0) << file;
  return status.st_mode & 0777;
}

/// Why the state cannot be opened, "" when it can.
std::string failure(const std::string& file) {
  try {
    const Database database(file);
  } catch (const Database_Error& error) {
    return error.what();
  }
  return "";
}

void add_pool(Connection& db, const std::string& uuid) {
  db.execute("INSERT INTO catalog_pool VALUES (?1, ?1, 'file', 'online', '', '', '{}')", uuid);
}

std::int64_t pools(Database& database) {
  Transaction transaction = database.begin(Access::read);
  Statement query(transaction.db(), "SELECT count(*) FROM catalog_pool");
  EXPECT_TRUE(query.next());
  return query.integer(0);
}

void add_pool(Database& database, const std::string& uuid) {
  Transaction transaction = database.begin(Access::write);
  add_pool(transaction.db(), uuid);
  transaction.commit();
}

class Database_Test : public testing::Test {
 protected:
  test::Temp_Directory directory_;
  const std::string file_ = directory_.path("state");
};

TEST_F(Database_Test, is_made_for_its_owner_alone) {
  const mode_t before = umask(0);
  {
    Database database(file_);
    EXPECT_TRUE(database.is_new());
    add_pool(database, "a");
    EXPECT_EQ(mode_of(file_), 0600U);
    EXPECT_EQ(mode_of(file_ + "-wal"), 0600U);
    EXPECT_EQ(mode_of(file_ + "-shm"), 0600U);
    EXPECT_EQ(mode_of(file_ + ".lock"), 0600U);
  }
  umask(before);
  EXPECT_FALSE(std::filesystem::exists(file_ + "-wal")) << "the journal was not folded in";
}

TEST_F(Database_Test, keeps_what_was_committed) {
  {
    Database database(file_);
    add_pool(database, "a");
  }
  Database database(file_);
  EXPECT_FALSE(database.is_new());
  EXPECT_EQ(pools(database), 1);
}

TEST_F(Database_Test, an_empty_file_is_a_new_state) {
  directory_.write("state", "");
  const Database database(file_);
  EXPECT_TRUE(database.is_new());
}

TEST_F(Database_Test, a_new_state_is_filled_or_stays_new) {
  EXPECT_THROW(Database(file_,
                        [](Connection& db) {
                          add_pool(db, "a");
                          throw std::runtime_error("in the middle");
                        }),
               std::runtime_error);
  {
    Database database(file_, [](Connection& db) { add_pool(db, "b"); });
    EXPECT_TRUE(database.is_new());
    EXPECT_EQ(pools(database), 1);
  }
  Database database(file_, [](Connection& db) { add_pool(db, "c"); });
  EXPECT_FALSE(database.is_new());
  EXPECT_EQ(pools(database), 1);
}

TEST_F(Database_Test, forgets_what_was_not_committed) {
  Database database(file_);
  {
    Transaction transaction = database.begin(Access::write);
    add_pool(transaction.db(), "a");
  }
  EXPECT_EQ(pools(database), 0);
  try {
    Transaction transaction = database.begin(Access::write);
    add_pool(transaction.db(), "a");
    throw std::runtime_error("in the middle");
  } catch (const std::runtime_error&) {
  }
  EXPECT_EQ(pools(database), 0);
  add_pool(database, "a");
  EXPECT_EQ(pools(database), 1);
}

TEST_F(Database_Test, a_failed_statement_leaves_the_transaction_usable_or_rolled_back) {
  Database database(file_);
  add_pool(database, "a");
  Transaction transaction = database.begin(Access::write);
  EXPECT_THROW(add_pool(transaction.db(), "A"), SQLite::Exception) << "same but for case";
  EXPECT_THROW(transaction.db().execute("INSERT INTO catalog_metadata VALUES "
                                        "('a', '/', '', 'no such device', 'dir', null)"),
               SQLite::Exception);
  add_pool(transaction.db(), "b");
  transaction.commit();
  EXPECT_THROW(transaction.commit(), SQLite::Exception);
}

TEST_F(Database_Test, a_reader_sees_one_moment_and_waits_for_no_writer) {
  Database database(file_);
  add_pool(database, "a");
  Transaction reader = database.begin(Access::read);
  Statement first(reader.db(), "SELECT count(*) FROM catalog_pool");
  ASSERT_TRUE(first.next());
  EXPECT_EQ(first.integer(0), 1);
  Transaction writer = database.begin(Access::write);
  add_pool(writer.db(), "b");
  EXPECT_EQ(pools(database), 1) << "not committed yet";
  writer.commit();
  EXPECT_EQ(pools(database), 2);
  Statement again(reader.db(), "SELECT count(*) FROM catalog_pool");
  ASSERT_TRUE(again.next());
  EXPECT_EQ(again.integer(0), 1);
}

TEST_F(Database_Test, statements_may_be_nested_and_used_again) {
  Database database(file_);
  Transaction transaction = database.begin(Access::write);
  Connection& db = transaction.db();
  for (const char* uuid : {"a", "b", "c"})
    add_pool(db, uuid);
  const char* const sql = "SELECT uuid FROM catalog_pool WHERE uuid > ? ORDER BY uuid";
  std::string seen;
  for (Statement outer(db, sql, ""); outer.next();) {
    seen += outer.text(0) + ':';
    for (Statement inner(db, sql, outer.text(0)); inner.next();)
      seen += inner.text(0);
    seen += ' ';
  }
  EXPECT_EQ(seen, "a:bc b:c c: ");
}

TEST_F(Database_Test, statements_are_told_apart_by_their_text) {
  Database database(file_);
  Transaction transaction = database.begin(Access::read);
  char sql[] = "SELECT 1";
  EXPECT_EQ(transaction.db().integer(sql), 1);
  sql[7] = '2';  // another text at the same address
  EXPECT_EQ(transaction.db().integer(sql), 2);
}

TEST_F(Database_Test, columns_are_read_by_position_and_by_name) {
  Database database(file_);
  Transaction transaction = database.begin(Access::read);
  Statement row(transaction.db(), "SELECT 'a' AS text, 7 AS number, NULL AS missing");
  ASSERT_TRUE(row.next());
  EXPECT_EQ(row.text(0), "a");
  EXPECT_EQ(row.text("text"), "a");
  EXPECT_EQ(row.integer("number"), 7);
  EXPECT_TRUE(row.is_null("missing"));
  EXPECT_THROW(row.text("none"), SQLite::Exception);
}

TEST_F(Database_Test, a_select_without_a_row_has_none) {
  Database database(file_);
  Transaction transaction = database.begin(Access::read);
  EXPECT_FALSE(transaction.db().has_row("SELECT 1 WHERE 0"));
  EXPECT_TRUE(transaction.db().has_row("SELECT 1"));
  EXPECT_EQ(transaction.db().integer("SELECT 1 WHERE 0"), 0);
}

TEST_F(Database_Test, binds_absent_values_as_null) {
  Database database(file_);
  Transaction transaction = database.begin(Access::read);
  Statement query(transaction.db(), "SELECT ?, ?, ?, ?", std::optional<std::string>(),
                  std::optional<std::int64_t>(), std::optional<std::int64_t>(7),
                  std::string("a\0b", 3));
  ASSERT_TRUE(query.next());
  EXPECT_TRUE(query.is_null(0));
  EXPECT_TRUE(query.is_null(1));
  EXPECT_EQ(query.integer(2), 7);
  EXPECT_EQ(query.text(3), std::string("a\0b", 3));
}

TEST_F(Database_Test, takes_changes_of_many_threads_one_after_another) {
  Database database(file_);
  constexpr int threads = 8;
  constexpr int each = 25;
  std::vector<std::thread> running;
  running.reserve(threads);
  std::atomic<int> seen_less{0};
  for (int t = 0; t < threads; ++t) {
    running.emplace_back([&, t] {
      for (int i = 0; i < each; ++i) {
        add_pool(database, std::to_string(t) + '-' + std::to_string(i));
        if (pools(database) < i + 1) ++seen_less;
      }
    });
  }
  for (std::thread& thread : running)
    thread.join();
  EXPECT_EQ(pools(database), threads * each);
  EXPECT_EQ(seen_less, 0);
}

TEST_F(Database_Test, does_not_share_its_file_with_another_service) {
  Database database(file_);
  EXPECT_THAT(failure(file_), HasSubstr("is in use by another zqpoold (process "));
  add_pool(database, "a");
}

TEST_F(Database_Test, says_that_another_program_holds_the_file) {
  { const Database made(file_); }
  SQLite::Database other(file_, SQLite::OPEN_READWRITE);
  other.exec("PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE");
  EXPECT_THAT(failure(file_), HasSubstr("is locked by another process"));
  other.exec("ROLLBACK");
}

TEST_F(Database_Test, refuses_a_newer_schema_and_leaves_it_alone) {
  { const Database made(file_); }
  {
    SQLite::Database other(file_, SQLite::OPEN_READWRITE);
    other.exec("PRAGMA user_version=" + std::to_string(schema_version + 1));
  }
  const std::string before = content_of(file_);
  EXPECT_THAT(failure(file_), HasSubstr("was written by a newer zqpoold (schema " +
                                        std::to_string(schema_version + 1)));
  EXPECT_EQ(content_of(file_), before);
}

TEST_F(Database_Test, refuses_a_data_base_of_something_else_and_leaves_it_alone) {
  {
    SQLite::Database other(file_, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
    other.exec("CREATE TABLE mine (a)");
  }
  const std::string before = content_of(file_);
  EXPECT_THAT(failure(file_), HasSubstr("is the database of another program"));
  EXPECT_EQ(content_of(file_), before);
}

TEST_F(Database_Test, refuses_a_file_that_is_no_data_base_and_leaves_it_alone) {
  directory_.write("state", std::string(5000, 'x'));
  EXPECT_THAT(failure(file_), HasSubstr("is damaged or not a state file"));
  EXPECT_EQ(content_of(file_), std::string(5000, 'x'));
}

TEST_F(Database_Test, refuses_a_damaged_file) {
  {
    Database database(file_);
    for (int i = 0; i < 300; ++i)
      add_pool(database, "pool " + std::to_string(i));
  }
  std::string content = content_of(file_);
  // A page in the middle, not the first one, which is read in any case.
  for (std::size_t i = std::size_t{8192}; i < content.size(); ++i)
    content[i] = static_cast<char>(i);
  directory_.write("state", content);
  EXPECT_THAT(failure(file_), HasSubstr("is damaged"));
  EXPECT_EQ(content_of(file_), content);
}

TEST_F(Database_Test, says_what_else_is_wrong_with_the_file) {
  EXPECT_THAT(failure(directory_.path("none/state")), HasSubstr("No such file or directory"));
  std::filesystem::create_directory(directory_.path("folder"));
  EXPECT_THAT(failure(directory_.path("folder")), HasSubstr("Is a directory"));
}

TEST_F(Database_Test, every_schema_step_leads_on_from_the_one_before) {
  // A state of each earlier version, made by its steps alone, is brought up to date.
  for (std::size_t version = 1; version <= schema_version; ++version) {
    const std::string file = directory_.path("from" + std::to_string(version));
    {
      SQLite::Database old(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
      for (std::size_t step = 0; step < version; ++step)
        old.exec(schema_steps[step]);
      old.exec("PRAGMA application_id=0x7a717064; PRAGMA user_version=" + std::to_string(version));
    }
    ASSERT_EQ(failure(file), "");
    SQLite::Database now(file, SQLite::OPEN_READONLY);
    EXPECT_EQ(now.execAndGet("PRAGMA user_version").getInt64(),
              static_cast<std::int64_t>(schema_version));
  }
}

}  // namespace
}  // namespace zqpool::service
