// What the audit log does beside its use: old records go, times are noted, pages are examined.
#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <thread>

#include "refhost/database.h"
#include "refhost/log.h"
#include "refhost/tests/audit_fixture.h"
#include "refhost/tests/captured_log.h"

namespace refhost::test {
namespace {

using testing::HasSubstr;

class TidyAudit : public Audit {
 protected:
  void keep(std::int64_t number, std::int64_t youngest_to_go = 0, bool knows_ages = true) {
    log_.retain(
        [=] { return AuditRetention{.keep = number, .youngest_to_go = youngest_to_go, .knows_ages = knows_ages}; });
  }

  void tidy_all() {
    while (log_.tidy()) {
    }
  }

  // So many records of long ago, in one transaction.
  void fill(int records) {
    change(
        "INSERT INTO audit_logs(time, type, details, at) WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 "
        "FROM n WHERE i < " +
        std::to_string(records) + ") SELECT 't', 1, 'details that take some room in a page ' || i, i FROM n");
    change("PRAGMA wal_checkpoint(TRUNCATE)");
  }

  void change(const std::string& sql) const { SQLite::Database(file(), SQLite::OPEN_READWRITE).exec(sql); }

  std::int64_t count(const std::string& table = "audit_logs") const {
    return SQLite::Database(file()).execAndGet("SELECT count(*) FROM " + table).getInt64();
  }

  std::uintmax_t size() const {
    change("PRAGMA wal_checkpoint(TRUNCATE)");
    return std::filesystem::file_size(file());
  }

  std::uintmax_t size_of_wal() const { return std::filesystem::file_size(file() + "-wal"); }
};

TEST_F(TidyAudit, TheOldestBeyondTheCountGoInTime) {
  keep(10);
  for (std::size_t i = 1; i <= 300; ++i) {
    log_.append({"t", 1, std::to_string(i)});
    tidy_all();
    ASSERT_GE(read(directory_.path(), {}).size(), std::min<std::size_t>(i, 10)) << "not one more than may go";
  }
  const auto left = read(directory_.path(), {});
  EXPECT_LT(left.size(), 10U + 100U);
  EXPECT_EQ(left.back(), "300 1 300");
}

TEST_F(TidyAudit, ARecordTooYoungToGoStaysWhateverTheirNumber) {
  keep(10, 3'600'000);
  for (int i = 1; i <= 300; ++i) {
    log_.append({"t", 1, std::to_string(i)});
    tidy_all();
  }
  EXPECT_EQ(count(), 300);
}

TEST_F(TidyAudit, WithoutACountAllStay) {
  keep(0);
  for (int i = 1; i <= 250; ++i) {
    log_.append({"t", 1, ""});
    tidy_all();
  }
  EXPECT_EQ(count(), 250);
}

TEST_F(TidyAudit, OneStepRemovesAFewAndTheNextGoesOn) {
  constexpr std::int64_t kMost = 250;
  fill(5000);
  keep(10);
  log_.append({"t", 1, "new"});
  EXPECT_EQ(count(), 5001) << "who appends does not wait for it";
  std::int64_t before = count();
  while (log_.tidy()) {
    const std::int64_t after = count();
    ASSERT_GE(after, before - kMost);
    before = after;
  }
  EXPECT_EQ(count(), 10);
}

// Records of just now look as old by a clock that runs years ahead as these do.
TEST_F(TidyAudit, ByAClockThatMayBeWrongTheNumberAloneDecides) {
  constexpr std::int64_t kDay = 86'400'000;
  fill(1500);
  keep(1000, 30 * kDay, false);
  log_.append({"t", 1, "new"});
  tidy_all();
  EXPECT_EQ(count(), 1501) << "young ones may be among those beyond the number";
  fill(1500);
  for (int i = 0; i < 300; ++i) {
    log_.append({"t", 1, "new"});
    tidy_all();
  }
  EXPECT_GE(count(), 2000);
  EXPECT_LE(count(), 2100) << "the disk has an end";
}

TEST_F(TidyAudit, TheFileShrinksAfterThem) {
  fill(20000);
  const auto before = size();
  keep(10);
  log_.append({"t", 1, "new"});
  tidy_all();
  EXPECT_LT(size(), before / 4) << "of " << before;
  EXPECT_EQ(SQLite::Database(file()).execAndGet("PRAGMA integrity_check").getString(), "ok");
}

TEST_F(TidyAudit, ARemovalThatALockHoldsUpIsDoneLater) {
  fill(100);
  keep(10);
  log_.append({"t", 1, "new"});
  {
    SQLite::Database other(file(), SQLite::OPEN_READWRITE);
    other.exec("BEGIN IMMEDIATE");
    EXPECT_TRUE(log_.tidy()) << "the examination writes nothing";
    EXPECT_THAT(failure_of([&] { log_.tidy(); }), HasSubstr("the audit log " + file() + " cannot be used"));
  }
  tidy_all();
  EXPECT_EQ(count(), 10);
}

TEST_F(TidyAudit, ItsLogIsCopiedIntoTheFileBesideTheAppends) {
  for (int i = 0; i < 600; ++i) {
    log_.append({"t", 1, std::string(8000, 'x')});
    tidy_all();
  }
  EXPECT_LT(size_of_wal(), 4'000'000U);
}

TEST_F(TidyAudit, WhereNobodyTidiesTheLogDoesNotGrowWithoutEnd) {
  constexpr std::uintmax_t kPage = 4096;
  const std::string many(200 * kPage, 'x');
  for (int i = 0; i < 100; ++i) {
    log_.append({"t", 1, many});
  }
  EXPECT_LT(size_of_wal(), 2000 * kPage) << "of 20,000 pages written";
}

class TimesOfAudit : public TidyAudit {
 protected:
  // Records of these times, and one of now.
  void fill_times(const std::vector<std::int64_t>& times) {
    SQLite::Database other(file(), SQLite::OPEN_READWRITE);
    SQLite::Transaction transaction(other);
    SQLite::Statement insert(other, "INSERT INTO audit_logs(time, type, details, at) VALUES('t', 1, 'd', ?)");
    for (const auto time : times) {
      insert.bind(1, time);
      insert.exec();
      insert.reset();
    }
    transaction.commit();
    log_.append({"t", 1, "d"});
  }

  std::vector<std::int64_t> found(const AuditFilter& filter) const {
    std::vector<std::int64_t> ids;
    AuditLog::read(directory_.path(), filter, [&](const AuditEntry& entry) { ids.push_back(entry.id); });
    return ids;
  }
};

TEST_F(TimesOfAudit, RecordsOfATimeAreFoundAlsoWhereTheClockWasSetBack) {
  std::mt19937 chance(1);
  std::vector<std::int64_t> times;
  std::int64_t clock = 1'000'000;
  while (times.size() < 3000) {
    const bool is_set = chance() % 300 == 0;
    clock += is_set ? static_cast<std::int64_t>(chance() % 400'000) - 200'000 : 100;
    times.push_back(clock);
  }
  fill_times(times);
  for (int tidied = 0; tidied < 3; ++tidied) {  // no block is noted, some, all
    EXPECT_EQ(count("audit_times"), tidied == 0 ? 0 : 11);
    for (int i = 0; i < 100; ++i) {
      const auto since = times[chance() % times.size()];
      const auto until = since + static_cast<std::int64_t>(chance() % 50'000);
      std::vector<std::int64_t> expected_since;
      std::vector<std::int64_t> expected_until;
      std::vector<std::int64_t> expected_both;
      for (std::size_t id = 1; id <= times.size() + 1; ++id) {
        const auto at = id <= times.size() ? times[id - 1] : now_ms();
        const auto add = [&](auto& list, bool is_in) {
          is_in ? list.push_back(static_cast<std::int64_t>(id)) : void();
        };
        add(expected_since, at >= since);
        add(expected_until, at < until);
        add(expected_both, at >= since && at < until);
      }
      ASSERT_EQ(found({.since = since}), expected_since) << since;
      ASSERT_EQ(found({.until = until}), expected_until) << until;
      ASSERT_EQ(found({.since = since, .until = until}), expected_both) << since << " " << until;
    }
    tidied == 0 ? static_cast<void>(log_.tidy() && log_.tidy()) : tidy_all();
  }
}

// Of other times by what is noted, whatever they are: a note is believed when its checksum is right.
TEST_F(TimesOfAudit, NoBlockOfOtherTimesIsRead) {
  fill_times(std::vector<std::int64_t>(1000, 5));
  tidy_all();
  EXPECT_EQ(found({.since = 5, .until = 6}).size(), 1000U);
  const auto note = [this](int block, const char* sum) {
    auto database = open_database_again(file());
    database.exec(std::string("UPDATE audit_times SET first = 1, last = 2, sum = ") + sum +
                  " WHERE block = " + std::to_string(block));
  };
  note(0, "row_sum(block, 1, 2)");
  EXPECT_EQ(found({.since = 5, .until = 6}).size(), 1000U - 255U);
  note(0, "0");
  EXPECT_EQ(found({.since = 5, .until = 6}).size(), 1000U) << "a damaged block may hold anything";
}

TEST_F(TimesOfAudit, GoWithTheirRecords) {
  fill_times(std::vector<std::int64_t>(5000, 5));
  tidy_all();
  EXPECT_EQ(count("audit_times"), 19);
  keep(300);
  for (int i = 0; i < 100; ++i) {
    log_.append({"t", 1, "d"});
  }
  tidy_all();
  EXPECT_EQ(count(), 300);
  EXPECT_EQ(count("audit_times"), 1);
}

class LateDamage : public TidyAudit {
 protected:
  LateDamage() {
    fill(20000);
    log_.append({"t", 1, "the last before"});
    change("PRAGMA wal_checkpoint(TRUNCATE)");
    log_.on_damage([this](const std::vector<std::string>& faults) { told_ = faults; });
  }

  void damage(std::uintmax_t at) {
    std::fstream(file(), std::ios::in | std::ios::out).seekp(static_cast<std::streamoff>(at / 4096 * 4096))
        << std::string(4096, 'x');
    damaged_ = content_of(file());
  }

  // The damaged file is there under another name, as it was, a new one in its place, and this was told of it.
  void expect_begun_anew() const {
    std::vector<std::string> kept;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
      if (const auto name = entry.path().string();
          name.find("damaged") != std::string::npos && !name.ends_with("-wal") && !name.ends_with("-shm")) {
        kept.push_back(name);
      }
    }
    ASSERT_EQ(kept.size(), 1U);
    EXPECT_EQ(content_of(kept[0]), damaged_);
    EXPECT_EQ(read(directory_.path(), {}), Texts({"1 1 the first after"}));
    EXPECT_EQ(told_, log_.faults());
    ASSERT_EQ(told_.size(), 1U);
    EXPECT_THAT(told_[0], HasSubstr("the audit log " + file() + " is damaged ("));
  }

  std::vector<std::string> told_;
  std::string damaged_;
};

TEST_F(LateDamage, InTheMiddleIsFoundBesideTheWork) {
  damage(size() / 2);
  capture_log();
  log_.append({"t", 1, "goes with the damaged one"});
  EXPECT_TRUE(told_.empty());
  EXPECT_TRUE(log_.tidy());
  EXPECT_THAT(captured_log(), HasSubstr("is kept as"));
  log_.append({"t", 1, "the first after"});
  tidy_all();
  expect_begun_anew();
}

TEST_F(LateDamage, ThatAnAppendMeetsLosesNoRecord) {
  change("DELETE FROM sqlite_sequence");  // an append reads this page, wherever it is
  const auto page = SQLite::Database(file())
                        .execAndGet("SELECT rootpage FROM sqlite_schema WHERE name = 'sqlite_sequence'")
                        .getInt64();
  change("PRAGMA wal_checkpoint(TRUNCATE)");
  damage(static_cast<std::uintmax_t>(page - 1) * 4096);
  capture_log();
  EXPECT_EQ(log_.append({"t", 1, "the first after"}), 1);
  captured_log();
  expect_begun_anew();
  EXPECT_TRUE(log_.tidy());
  expect_begun_anew();
}

TEST_F(LateDamage, AmongTheNewestRecordsIsFoundAtTheOpening) {
  const TemporaryDirectory other;
  std::filesystem::copy_file(file(), other.path() / "audit.db");
  const auto newest = std::filesystem::file_size(file()) - 1;  // the page of the latest records
  std::fstream(other.path() / "audit.db", std::ios::in | std::ios::out)
          .seekp(static_cast<std::streamoff>(newest / 4096 * 4096))
      << std::string(4096, 'x');
  capture_log();
  AuditLog opened(other.path());
  EXPECT_THAT(captured_log(), HasSubstr("is kept as"));
  EXPECT_EQ(opened.faults().size(), 1U);
  EXPECT_EQ(opened.append({"t", 1, "d"}), 1);
}

TEST(AuditLogAtItsEnd, IsCleanAlsoWhileItTidies) {
  const TemporaryDirectory directory;
  auto& log = *new AuditLog(directory.path());  // never destroyed, as its lock is held for good
  for (int i = 0; i < 20; ++i) {
    log.append({"t", 1, std::string(100'000, 'x')});
  }
  std::thread([&log] {
    for (;;) {
      log.append({"t", 1, ""});
      log.tidy();
    }
  }).detach();
  log.seal();
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "audit.db-wal"));
}

TEST(AuditLog, AFileWithAnIndexOfAllTimesIsBroughtUpToDate) {
  const TemporaryDirectory directory;
  const auto file = directory.path() / "audit.db";
  SQLite::Database(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
      .exec(
          "PRAGMA auto_vacuum = INCREMENTAL; CREATE TABLE audit_logs(id INTEGER PRIMARY KEY AUTOINCREMENT, time TEXT "
          "NOT "
          "NULL, type INTEGER NOT NULL, details TEXT NOT NULL, at INTEGER NOT NULL DEFAULT 0, sum INTEGER);"
          "CREATE INDEX audit_logs_by_time ON audit_logs(at); PRAGMA user_version = 4;"
          "INSERT INTO audit_logs(time, type, details, at) WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 "
          "FROM n WHERE i < 1000) SELECT 't', 1, 'd', i FROM n");
  AuditLog log(directory.path());
  EXPECT_EQ(SQLite::Database(file).execAndGet("SELECT count(*) FROM sqlite_schema WHERE type = 'index'").getInt(), 0);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(read(directory.path(), {.since = 700, .until = 703}), Texts({"700 1 d", "701 1 d", "702 1 d"}));
    while (log.tidy()) {
    }
  }
  EXPECT_EQ(SQLite::Database(file).execAndGet("SELECT count(*) FROM audit_times").getInt(), 3);
}

}  // namespace
}  // namespace refhost::test
