#include "refhost/audit_log.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "ac/exception.h"
#include "ac_dal/audit_logs.h"
#include "tests/support.h"

namespace refhost::test {
namespace {

class Audit : public testing::Test {
 protected:
  Audit() : log_(directory_.path()) { AuditLog::make_current(&log_); }
  ~Audit() override { AuditLog::make_current(nullptr); }

  std::string file() const { return directory_.path() / "audit.db"; }

  // The records as another process sees them: "id|time|type|details".
  std::vector<std::string> records() const {
    std::vector<std::string> result;
    SQLite::Database database(file());
    SQLite::Statement query(database,
                            "SELECT id || '|' || time || '|' || type || '|' || details FROM audit_logs "
                            "ORDER BY id");
    while (query.executeStep()) {
      result.push_back(query.getColumn(0).getString());
    }
    return result;
  }

  TemporaryDirectory directory_;
  AuditLog log_;
};

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

TEST(AuditLog, RecordsAreThereAfterReopening) {
  const TemporaryDirectory directory;
  AuditLog(directory.path()).append({"a", 1, "first"});
  EXPECT_EQ(AuditLog(directory.path()).append({"b", 2, "second"}), 2);
}

TEST(AuditLog, FileThatIsNoDatabaseIsRefusedAndStaysAsItIs) {
  const TemporaryDirectory directory;
  const auto file = directory.path() / "audit.db";
  std::ofstream(file) << std::string(5000, 'x');
  const std::string failure = failure_of([&] { AuditLog log(directory.path()); });
  EXPECT_NE(failure.find(file.string() + " is no readable audit log"), std::string::npos) << failure;
  EXPECT_EQ(content_of(file), std::string(5000, 'x'));
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
