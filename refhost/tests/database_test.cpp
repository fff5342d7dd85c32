// Files that are not as they should be.
#include "refhost/database.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ac/exception.h"
#include "refhost/tests/captured_log.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

constexpr DatabaseKind kKind = {.noun = "test database",
                                .version = 2,
                                .schema = "CREATE TABLE things(name TEXT, size INTEGER DEFAULT 0)",
                                .upgrades = {"ALTER TABLE things ADD COLUMN size INTEGER DEFAULT 0"},
                                .probe = "SELECT name FROM things LIMIT 0",
                                .way_out = "restore a copy of it"};

constexpr DatabaseKind kFirstVersion = {.noun = "test database",
                                        .version = 1,
                                        .schema = "CREATE TABLE things(name TEXT)",
                                        .probe = kKind.probe,
                                        .way_out = kKind.way_out};

class DatabaseFile : public testing::Test {
 protected:
  // The files beside this one that hold what was damaged.
  std::vector<std::filesystem::path> kept_aside() const {
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
      if (entry.path().string().starts_with(file.string() + ".damaged-")) {
        found.push_back(entry.path());
      }
    }
    return found;
  }

  // A file with so many rows, all of them in the file itself.
  void fill(int rows) const {
    auto database = open_database(file, kKind);
    SQLite::Transaction transaction(database);
    for (int i = 0; i < rows; ++i) {
      database.exec("INSERT INTO things(name) VALUES('a name that takes some room in its page, number " +
                    std::to_string(i) + "')");
    }
    transaction.commit();
    database.exec("PRAGMA wal_checkpoint(TRUNCATE)");
  }

  static int rows(SQLite::Database& database) { return database.execAndGet("SELECT count(*) FROM things").getInt(); }

  // What opening the file for writing logs.
  std::string log_of_opening() const {
    capture_log();
    auto database = open_database(file, kKind);
    EXPECT_EQ(rows(database), 0) << "a new one";
    return captured_log();
  }

 private:
  TemporaryDirectory directory_;

 protected:
  const std::filesystem::path file = directory_.path() / "things.db";
};

TEST_F(DatabaseFile, OneThatIsNoDatabaseIsKeptAsideAndSaid) {
  std::ofstream(file) << std::string(5000, 'x');
  const std::string log = log_of_opening();
  ASSERT_EQ(kept_aside().size(), 1U);
  EXPECT_EQ(content_of(kept_aside()[0]), std::string(5000, 'x'));
  EXPECT_NE(log.find("the test database " + file.string() + " is damaged (file is not a database): it is kept as " +
                     kept_aside()[0].string() + ", and a new one is begun"),
            std::string::npos)
      << log;
}

TEST_F(DatabaseFile, OneWithABrokenPageIsKeptAsideAndSaid) {
  fill(2000);
  const auto size = std::filesystem::file_size(file);
  std::fstream(file, std::ios::in | std::ios::out).seekp(static_cast<std::streamoff>(size / 2))
      << std::string(4096, 'x');
  const std::string damaged = content_of(file);
  const std::string log = log_of_opening();
  ASSERT_EQ(kept_aside().size(), 1U) << log;
  EXPECT_EQ(content_of(kept_aside()[0]), damaged);
}

TEST_F(DatabaseFile, ASecondDamageDoesNotOverwriteTheFirst) {
  for (const char* content : {"first", "second", "third"}) {
    std::ofstream(file) << std::string(5000, *content) << content;
    log_of_opening();
  }
  EXPECT_EQ(kept_aside().size(), 3U);
}

TEST_F(DatabaseFile, ToReadItADamagedOneIsRefusedAndStays) {
  std::ofstream(file) << std::string(5000, 'x');
  const std::string failure = failure_of([&] { open_database_to_read(file, kKind); });
  EXPECT_EQ(failure, file.string() + " is no readable test database (file is not a database): restore a copy of it");
  EXPECT_TRUE(kept_aside().empty());
}

TEST_F(DatabaseFile, ToReadItOneThatIsNotThereOrThatNobodyCameToWriteToIsNothing) {
  EXPECT_FALSE(open_database_to_read(file, kKind).has_value());
  std::ofstream(file).flush();
  EXPECT_FALSE(open_database_to_read(file, kKind).has_value());
  open_database(file, kKind);
  EXPECT_TRUE(open_database_to_read(file, kKind).has_value());
}

TEST_F(DatabaseFile, OneOfAnotherKindIsRefusedAndStays) {
  SQLite::Database(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE).exec("CREATE TABLE other(x)");
  const std::string failure = failure_of([&] { open_database(file, kKind); });
  EXPECT_EQ(failure, file.string() + " is no readable test database (no such table: things): restore a copy of it");
  EXPECT_TRUE(kept_aside().empty());
}

TEST_F(DatabaseFile, OneOfANewerVersionIsRefusedAndStays) {
  fill(3);
  const std::string failure = failure_of([&] { open_database(file, kFirstVersion); });
  EXPECT_NE(failure.find("is a test database of version 2, newer than this program knows (1)"), std::string::npos)
      << failure;
  auto database = open_database(file, kKind);
  EXPECT_EQ(rows(database), 3);
}

TEST_F(DatabaseFile, OneOfTheVersionBeforeIsBroughtUpToDate) {
  open_database(file, kFirstVersion).exec("INSERT INTO things(name) VALUES('old')");
  for (int i = 0; i < 2; ++i) {
    auto database = open_database(file, kKind);
    EXPECT_EQ(database.execAndGet("SELECT size FROM things").getInt(), 0);
    EXPECT_EQ(database.execAndGet("PRAGMA user_version").getInt(), 2);
  }
}

TEST_F(DatabaseFile, OneOfAnEarlierVersionTakesEveryStep) {
  DatabaseKind third = kKind;
  third.version = 3;
  third.upgrades = {kKind.upgrades[0], "ALTER TABLE things ADD COLUMN colour TEXT DEFAULT 'red'"};
  open_database(file, kFirstVersion).exec("INSERT INTO things(name) VALUES('old')");
  auto database = open_database(file, third);
  EXPECT_EQ(database.execAndGet("SELECT size || colour FROM things").getString(), "0red");
  EXPECT_EQ(database.execAndGet("PRAGMA user_version").getInt(), 3);
}

TEST_F(DatabaseFile, AStepThatFailsLeavesItAsItWas) {
  DatabaseKind third = kKind;
  third.version = 3;
  third.upgrades = {kKind.upgrades[0], "ALTER TABLE nothing ADD COLUMN colour"};
  open_database(file, kFirstVersion).exec("INSERT INTO things(name) VALUES('old')");
  EXPECT_NE(failure_of([&] { open_database(file, third); }), "nothing was thrown");
  auto database = open_database(file, kFirstVersion);
  EXPECT_EQ(rows(database), 1);
  EXPECT_EQ(database.execAndGet("PRAGMA user_version").getInt(), 1);
}

TEST_F(DatabaseFile, ToReadItAnOlderOneIsRefusedWithTheWayOut) {
  open_database(file, kFirstVersion);
  EXPECT_EQ(failure_of([&] { open_database_to_read(file, kKind); }),
            file.string() + " is a test database of version 1: a host that runs on it brings it up to date (2)");
}

TEST_F(DatabaseFile, EveryTransactionIsDurable) {
  auto database = open_database(file, kKind);
  EXPECT_EQ(database.execAndGet("PRAGMA journal_mode").getString(), "wal");
  EXPECT_EQ(database.execAndGet("PRAGMA synchronous").getInt(), 2) << "FULL";
}

TEST_F(DatabaseFile, OneOfSomebodyElseIsRefusedWithTheWayOut) {
  open_database(file, kKind);
  ASSERT_EQ(chmod(file.parent_path().c_str(), 0), 0);
  const bool is_root = geteuid() == 0;
  if (is_root) {
    ASSERT_EQ(seteuid(65534), 0);
  }
  const auto failure = failure_of([&] { open_database_to_read(file, kKind); });
  if (is_root) {
    ASSERT_EQ(seteuid(0), 0);
  }
  ASSERT_EQ(chmod(file.parent_path().c_str(), 0700), 0);
  EXPECT_EQ(failure, "the test database " + file.string() +
                         " cannot be used: Permission denied; try it as root, or as whom " +
                         file.parent_path().string() + " belongs to");
}

TEST_F(DatabaseFile, ADirectoryThatCannotBeWrittenIsNamed) {
  const auto nowhere = file.parent_path() / "missing" / "things.db";
  const std::string failure = failure_of([&] { open_database(nowhere, kKind); });
  EXPECT_NE(failure.find("the test database " + nowhere.string() + " cannot be used"), std::string::npos) << failure;
}

}  // namespace
}  // namespace refhost::test
