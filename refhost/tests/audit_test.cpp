#include "refhost/audit_log.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "ac/exception.h"
#include "ac_dal/audit_logs.h"
#include "refhost/log.h"
#include "refhost/tests/audit_fixture.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

TEST_F(Audit, CreatedRecordIsInTheFileWhenCreateReturns) {
  ac_dal::audit_logs record;
  record.time("2026-01-02 03:04:05.678");
  record.type(3);
  record.details("usb 'port' opened");
  record.create();
  EXPECT_EQ(records(), std::vector<std::string>({"1|2026-01-02 03:04:05.678|3|usb 'port' opened"}));
}

TEST_F(Audit, RecordIsCreatedThroughItsBaseToo) {
  ac_dal::audit_logs record;
  ac_dal::ac_dao& base = record;
  base.create();
  EXPECT_EQ(records(), std::vector<std::string>({"1||0|"}));
}

TEST_F(Audit, RecordsKeepTheirOrderAndNumbers) {
  EXPECT_EQ(log_.append({"a", 1, "first"}), 1);
  EXPECT_EQ(log_.append({"b", 2, "second"}), 2);
  EXPECT_EQ(records(), std::vector<std::string>({"1|a|1|first", "2|b|2|second"}));
}

TEST_F(Audit, FileIsWrittenThroughALog) {
  SQLite::Database database(file());
  EXPECT_EQ(database.execAndGet("PRAGMA journal_mode").getString(), "wal");
}

TEST_F(Audit, FailureNamesTheFile) {
  SQLite::Database(file(), SQLite::OPEN_READWRITE).exec("DROP TABLE audit_logs");
  ac_dal::audit_logs record;
  EXPECT_THROW(record.create(), ac::ac_exception);
  const std::string failure = failure_of([&] { record.create(); });
  EXPECT_NE(failure.find(file()), std::string::npos) << failure;
}

TEST_F(Audit, ManyThreadsMayAppend) {
  {
    std::vector<std::jthread> writers;
    for (int writer = 0; writer < 4; ++writer) {
      writers.emplace_back([this] {
        for (int i = 0; i < 10; ++i) {
          log_.append({"t", 1, "d"});
        }
      });
    }
  }
  EXPECT_EQ(records().size(), 40U);
}

TEST_F(Audit, ReadHandsOutWhatTheFilterLeaves) {
  log_.append({"t", 1, "a"});
  log_.append({"t", 2, "b"});
  log_.append({"t", 3, "c"});
  log_.append({"t", 2, "d"});
  EXPECT_EQ(read(directory_.path(), {}), Texts({"1 1 a", "2 2 b", "3 3 c", "4 2 d"}));
  EXPECT_EQ(read(directory_.path(), {.types = {2, 3}}), Texts({"2 2 b", "3 3 c", "4 2 d"}));
  EXPECT_EQ(read(directory_.path(), {.last = 2}), Texts({"3 3 c", "4 2 d"})) << "the newest, oldest first";
  EXPECT_EQ(read(directory_.path(), {.types = {2}, .last = 1}), Texts({"4 2 d"}));
  EXPECT_EQ(read(directory_.path(), {.types = {7}}), Texts());
}

// What a reader hands out, so many at a time.
Texts read_in_parts(const std::filesystem::path& directory, AuditFilter filter, std::size_t most) {
  AuditReader reader(directory);
  filter.range = reader.range_of(filter);
  filter.last.reset();
  Texts found;
  for (std::size_t before = 1; std::exchange(before, found.size()) != found.size();) {
    std::size_t taken = 0;
    reader.read(filter, [&](const AuditEntry& entry) {
      found.push_back(std::to_string(entry.id) + " " + std::to_string(entry.record.type) + " " + entry.record.details);
      filter.range->after = entry.id;
      return ++taken < most;
    });
  }
  return found;
}

TEST_F(Audit, AReaderHandsOutTheSameInParts) {
  for (int i = 0; i < 20; ++i) {
    log_.append({"t", i % 3, std::to_string(i)});
  }
  for (const AuditFilter& filter :
       {AuditFilter{}, AuditFilter{.types = {1, 2}}, AuditFilter{.last = 5}, AuditFilter{.types = {2}, .last = 3},
        AuditFilter{.since = now_ms() + 60'000}, AuditFilter{.until = now_ms() + 60'000, .last = 100},
        AuditFilter{.last = 0}, AuditFilter{.types = {7}}}) {
    for (const std::size_t most : {1U, 3U, 100U}) {
      EXPECT_EQ(read_in_parts(directory_.path(), filter, most), read(directory_.path(), filter)) << most;
    }
  }
}

TEST_F(Audit, AReaderHandsOutNothingThatCameAfterItLookedWhere) {
  log_.append({"t", 1, "a"});
  AuditReader reader(directory_.path());
  const AuditFilter filter{.range = reader.range_of({})};
  log_.append({"t", 1, "b"});
  Texts found;
  reader.read(filter, [&found](const AuditEntry& entry) {
    found.push_back(entry.record.details);
    return true;
  });
  EXPECT_EQ(found, Texts({"a"}));
}

// Else what is written would stay beside the file for as long as somebody leaves a page on the screen.
TEST_F(Audit, AReaderHoldsNothingBetweenItsParts) {
  AuditReader reader(directory_.path());
  log_.append({"t", 1, "a"});
  reader.read({}, [](const AuditEntry&) { return false; });
  EXPECT_EQ(SQLite::Database(directory_.path() / "audit.db", SQLite::OPEN_READWRITE)
                .execAndGet("PRAGMA wal_checkpoint(TRUNCATE)")
                .getInt(),
            0)
      << "busy";
}

TEST_F(Audit, AReaderSeesTheFileThatHasTakenTheOthersPlace) {
  log_.append({"t", 1, "a"});
  AuditReader reader(directory_.path());
  EXPECT_EQ(reader.range_of({}), (AuditRange{.after = 0, .to = 1}));
  const TemporaryDirectory other;
  {
    AuditLog log(other.path());
    log.append({"t", 1, "b"});
    log.append({"t", 1, "c"});
  }
  std::filesystem::remove(directory_.path() / "audit.db-wal");
  std::filesystem::remove(directory_.path() / "audit.db-shm");
  std::filesystem::rename(other.path() / "audit.db", directory_.path() / "audit.db");
  EXPECT_EQ(reader.range_of({}), (AuditRange{.after = 0, .to = 2}));
}

TEST_F(Audit, TimesOfTheFilterAreIncludedAndExcluded) {
  const auto before = now_ms();
  log_.append({"t", 1, "a"});
  const auto after = now_ms() + 1;
  std::int64_t at = 0;
  AuditLog::read(directory_.path(), {}, [&](const AuditEntry& entry) { at = entry.at; });
  EXPECT_GE(at, before);
  EXPECT_LT(at, after);
  EXPECT_EQ(read(directory_.path(), {.since = at}).size(), 1U);
  EXPECT_EQ(read(directory_.path(), {.since = at + 1}).size(), 0U);
  EXPECT_EQ(read(directory_.path(), {.until = at + 1}).size(), 1U);
  EXPECT_EQ(read(directory_.path(), {.until = at}).size(), 0U);
}

TEST_F(Audit, EachRecordIsToldOnceItIsInTheFile) {
  std::vector<std::string> told;
  log_.on_append([&](const AuditEntry& entry) {
    told.push_back(std::to_string(entry.id) + entry.record.time + std::to_string(entry.record.type) +
                   entry.record.details);
    EXPECT_EQ(records().size(), told.size());
  });
  log_.append({"t", 1, "a"});
  log_.append({"u", 2, "b"});
  EXPECT_EQ(told, Texts({"1t1a", "2u2b"}));
}

TEST_F(Audit, AfterAFailureItWritesAgain) {
  SQLite::Database other(file(), SQLite::OPEN_READWRITE);
  other.exec("ALTER TABLE audit_logs RENAME TO elsewhere");
  EXPECT_THROW(log_.append({"t", 1, "lost, and said"}), ac::ac_exception);
  other.exec("ALTER TABLE elsewhere RENAME TO audit_logs");
  EXPECT_EQ(log_.append({"t", 1, "kept"}), 1);
}

// The system's bound on the size of files stands for a full disk.
TEST_F(Audit, AFullDiskIsAnErrorThatNamesTheFileAndLosesNothing) {
  log_.append({"t", 1, "before"});
  signal(SIGXFSZ, SIG_IGN);
  rlimit unbounded{};
  getrlimit(RLIMIT_FSIZE, &unbounded);
  const rlimit bounded{.rlim_cur = 64 * 1024, .rlim_max = unbounded.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &bounded), 0);
  std::size_t written = 1;
  const std::string failure = failure_of([&] {
    for (;;) {
      log_.append({"t", 1, std::string(2000, 'x')});
      ++written;
    }
  });
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &unbounded), 0);
  EXPECT_NE(failure.find("the audit log " + file() + " cannot be used"), std::string::npos) << failure;
  EXPECT_EQ(records().size(), written) << "what was acknowledged is there, what was not is not";
  log_.append({"t", 1, "after"});
  EXPECT_EQ(records().size(), written + 1);
}

TEST(AuditLog, AFileOfTheFirstVersionIsBroughtUpToDate) {
  setenv("TZ", "XXX-2", 1);  // two hours east, as POSIX has it
  tzset();
  const TemporaryDirectory directory;
  SQLite::Database(directory.path() / "audit.db", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
      .exec(
          "CREATE TABLE audit_logs(id INTEGER PRIMARY KEY AUTOINCREMENT, time TEXT NOT NULL, type INTEGER NOT NULL, "
          "details TEXT NOT NULL); PRAGMA user_version = 1;"
          "INSERT INTO audit_logs(time, type, details) VALUES('2026-01-02 03:04:05.678', 1, 'a'), ('?', 2, 'b')");
  EXPECT_EQ(AuditLog(directory.path()).append({"t", 3, "c"}), 3);
  std::vector<std::int64_t> times;
  AuditLog::read(directory.path(), {}, [&](const AuditEntry& entry) { times.push_back(entry.at); });
  ASSERT_EQ(times.size(), 3U);
  std::tm local{};
  strptime("2026-01-02 03:04:05", "%Y-%m-%d %H:%M:%S", &local);
  local.tm_isdst = -1;
  EXPECT_EQ(times[0], static_cast<std::int64_t>(std::mktime(&local)) * 1000);
  EXPECT_EQ(times[1], 0) << "a time that is none";
  unsetenv("TZ");
  tzset();
}

TEST(AuditLog, AFileOfTheSecondVersionIsBroughtUpToDateAndCanShrink) {
  const TemporaryDirectory directory;
  const auto file = directory.path() / "audit.db";
  SQLite::Database(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
      .exec(
          "CREATE TABLE audit_logs(id INTEGER PRIMARY KEY AUTOINCREMENT, time TEXT NOT NULL, type INTEGER NOT NULL, "
          "details TEXT NOT NULL, at INTEGER NOT NULL DEFAULT 0); PRAGMA user_version = 2;"
          "INSERT INTO audit_logs(time, type, details, at) VALUES('t', 1, 'a', 100), ('t', 2, 'b', 200)");
  EXPECT_EQ(AuditLog(directory.path()).append({"t", 3, "c"}), 3);
  EXPECT_EQ(read(directory.path(), {.since = 101}), Texts({"2 2 b", "3 3 c"}));
  SQLite::Database database(file);
  EXPECT_EQ(database.execAndGet("PRAGMA user_version").getInt(), 5);
  EXPECT_EQ(database.execAndGet("PRAGMA auto_vacuum").getInt(), 2) << "in steps";
  const auto report = AuditLog::inspect(directory.path());
  EXPECT_TRUE(report.faults.empty()) << report.faults[0];
  EXPECT_EQ(report.content, "3 records, numbers 1 to 3");
}

class DamagedAudit : public testing::Test {
 protected:
  DamagedAudit() {
    log::set_threshold(log::Level::off);
    AuditLog log(directory.path());
    for (int i = 1; i <= 20; ++i) {
      log.append({"t", 1, "details " + std::to_string(i)});
    }
  }

  ~DamagedAudit() override { log::set_threshold(log::Level::warning); }

  void change(const std::string& sql) const {
    SQLite::Database(directory.path() / "audit.db", SQLite::OPEN_READWRITE).exec(sql);
  }

  // What a start and an examination find.
  void expect_found(const Texts& faults) const {
    EXPECT_EQ(AuditLog::inspect(directory.path()).faults, faults);
    Texts at_start;
    for (const auto& fault : faults) {
      at_start.push_back(directory.path() / "audit.db: ");
      at_start.back() += fault;
    }
    EXPECT_EQ(AuditLog(directory.path()).faults(), at_start);
  }

  TemporaryDirectory directory;
};

TEST_F(DamagedAudit, NothingIsFoundWhereNothingIs) {
  expect_found({});
  EXPECT_EQ(AuditLog::inspect(directory.path()).content, "20 records, numbers 1 to 20");
  change("DELETE FROM audit_logs WHERE id <= 5");
  expect_found({});
  EXPECT_EQ(AuditLog::inspect(directory.path()).content, "15 records, numbers 6 to 20") << "the oldest may go";
}

TEST_F(DamagedAudit, AGapIsFound) {
  change("DELETE FROM audit_logs WHERE id = 7 OR id BETWEEN 10 AND 12");
  expect_found({"record 7 is missing", "records 10 to 12 are missing"});
}

TEST_F(DamagedAudit, ThatTheNewestAreMissingIsFound) {
  change("DELETE FROM audit_logs WHERE id > 18");
  expect_found({"records 19 to 20 are missing"});
  change("DELETE FROM audit_logs");
  expect_found({"records 1 to 20 are missing"});
}

TEST_F(DamagedAudit, ARecordThatIsNotAsItWasWrittenIsFound) {
  for (const char* column :
       {"time = 'T'", "type = 2", "details = 'details 8'", "at = at + 1", "sum = sum + 1", "sum = NULL"}) {
    change(std::string("UPDATE audit_logs SET ") + column + " WHERE id = 9");
    expect_found({"record 9 is not as it was written: its checksum is wrong"});
    change(
        "DELETE FROM audit_logs WHERE id = 9; INSERT INTO audit_logs SELECT 9, time, type, details, at, sum FROM "
        "audit_logs WHERE id = 8");
    expect_found({"record 9 is not as it was written: its checksum is wrong"});
    change("DELETE FROM audit_logs; DELETE FROM sqlite_sequence");
    AuditLog log(directory.path());
    for (int i = 1; i <= 20; ++i) {
      log.append({"t", 1, "details " + std::to_string(i)});
    }
  }
}

TEST_F(DamagedAudit, ManyFaultsAreAFewLines) {
  change("UPDATE audit_logs SET type = 3");
  const auto faults = AuditLog::inspect(directory.path()).faults;
  ASSERT_EQ(faults.size(), 11U);
  EXPECT_EQ(faults.back(), "so are 10 more");
}

TEST(AuditLog, WithoutAFileThereIsNothingToRead) {
  const TemporaryDirectory directory;
  EXPECT_EQ(read(directory.path(), {}), Texts());
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "audit.db"));
}

TEST(AuditLog, RecordsAreThereAfterReopening) {
  const TemporaryDirectory directory;
  AuditLog(directory.path()).append({"a", 1, "first"});
  EXPECT_EQ(AuditLog(directory.path()).append({"b", 2, "second"}), 2);
}

TEST(AuditLog, WithoutAnOpenLogARecordCannotBeCreated) {
  ac_dal::audit_logs record;
  EXPECT_EQ(failure_of([&] { record.create(); }), "no audit log is open");
}

TEST(AuditLog, RecordOfNoKindCannotBeCreated) {
  ac_dal::ac_dao record;
  EXPECT_THROW(record.create(), ac::ac_exception);
}

}  // namespace
}  // namespace refhost::test
