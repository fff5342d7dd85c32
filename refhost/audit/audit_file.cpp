#include "audit/audit_file.h"

#include <limits>
#include <string>

#include "audit/record_check.h"
#include "refhost/database.h"
#include "refhost/log.h"

namespace refhost {
namespace {

constexpr const char* kFileName = "audit.db";

// Removing is worth a look every so many records.
constexpr std::int64_t kPruneEvery = 100;

// What one append removes at the most: whoever appends waits for it, beside the disk.
constexpr int kMostToGo = 250;

// Pages that one append gives back to the disk, and free ones that may stay for the records to come.
constexpr int kPagesBack = 12;
constexpr int kFreePages = 64;

constexpr DatabaseKind kKind = {
    .noun = "audit log",
    .version = 4,
    .schema =
        "CREATE TABLE audit_logs(id INTEGER PRIMARY KEY AUTOINCREMENT, time TEXT NOT NULL, type INTEGER NOT NULL, "
        "details TEXT NOT NULL, at INTEGER NOT NULL DEFAULT 0, sum INTEGER);"
        "CREATE INDEX audit_logs_by_time ON audit_logs(at)",
    .upgrades =
        {// Version 1 had the written time alone, which is local.
         "ALTER TABLE audit_logs ADD COLUMN at INTEGER NOT NULL DEFAULT 0;"
         "UPDATE audit_logs SET at = coalesce(strftime('%s', time, 'utc') * 1000, 0)",
         "CREATE INDEX audit_logs_by_time ON audit_logs(at)",
         // Those of earlier versions stay without: all of them would be written anew.
         "ALTER TABLE audit_logs ADD COLUMN sum INTEGER"},
    .probe = "SELECT id, time, type, details FROM audit_logs LIMIT 0",
    .way_out = "restore a copy of it, or move it away to begin a new one",
    .shrinks = true,
};

// The number is a part of what the checksum is over.
constexpr const char* kInsert =
    "INSERT INTO audit_logs(id, at, time, type, details, sum) "
    "SELECT next, ?1, ?2, ?3, ?4, row_sum(next, ?1, ?2, ?3, ?4) FROM (SELECT 1 + "
    "coalesce((SELECT seq FROM sqlite_sequence WHERE name = 'audit_logs'), 0) AS next)";

// A start looks at so many of the latest records: they are those that a crash or a damaged log can have touched.
constexpr int kCheckedAtOpen = 1000;

// The records of a time lie together, unless somebody has set the clock: its index tells between which numbers, and the
// records between them are read in their order.
std::string between(const std::string& time, const char* number, const char* end) {
  return " AND " + time + " AND id " + number + " (SELECT " + end +
         "(id) FROM audit_logs INDEXED BY audit_logs_by_time WHERE " + time + ")";
}

std::string question(const AuditFilter& filter) {
  std::string where = " NOT INDEXED WHERE 1";
  for (std::size_t i = 0; i < filter.types.size(); ++i) {
    where += (i == 0 ? " AND type IN (" : ", ") + std::to_string(filter.types[i]);
  }
  where += filter.types.empty() ? "" : ")";
  where += filter.since.has_value() ? between("at >= " + std::to_string(*filter.since), ">=", "min") : "";
  where += filter.until.has_value() ? between("at < " + std::to_string(*filter.until), "<=", "max") : "";
  const std::string columns = "SELECT id, at, time, type, details FROM ";
  return filter.last.has_value() ? columns + "(SELECT * FROM audit_logs" + where + " ORDER BY id DESC LIMIT " +
                                       std::to_string(*filter.last) + ") ORDER BY id"
                                 : columns + "audit_logs" + where + " ORDER BY id";
}

// Hand the records after a number to the check.
void check_from(SQLite::Database& database, const std::string& number, RecordCheck& check) {
  SQLite::Statement query(database,
                          "SELECT id, sum, sum = row_sum(id, at, time, type, details) FROM audit_logs NOT INDEXED "
                          "WHERE id > " +
                              number + " ORDER BY id");
  while (query.executeStep()) {
    check.take(query.getColumn(0),
               query.getColumn(1).isNull() ? std::nullopt : std::optional(query.getColumn(2).getInt() == 1));
  }
  check.end(database.execAndGet("SELECT coalesce((SELECT seq FROM sqlite_sequence WHERE name = 'audit_logs'), 0)"));
}

void assign(std::string& text, const SQLite::Column& column) {
  const char* const content = column.getText();
  text.assign(content, static_cast<std::size_t>(column.getBytes()));
}

}  // namespace

AuditFile::AuditFile(const std::filesystem::path& directory)
    : file_(directory / kFileName), watch_(file_), database_(open_database(file_, kKind, nullptr, &faults_)) {
  try {
    RecordCheck check;
    check_from(database_, "(SELECT max(id) FROM audit_logs) - " + std::to_string(kCheckedAtOpen), check);
    for (const auto& fault : check.faults()) {
      faults_.push_back(file_.string() + ": " + fault);
      log::error(faults_.back());
    }
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(file_, kKind, failure);
  }
}

std::int64_t AuditFile::append(const AuditEntry& entry, const AuditRetention& retention) {
  StoreWatch::Use use(watch_, "an audit record");
  try {
    SQLite::Transaction transaction(database_);
    SQLite::Statement insert(database_, kInsert);
    insert.bind(1, entry.at);
    insert.bind(2, entry.record.time);
    insert.bind(3, entry.record.type);
    insert.bind(4, entry.record.details);
    insert.exec();
    const std::int64_t id = database_.getLastInsertRowid();
    if (retention.keep > 0 && id >= next_prune_) {
      prune(id, entry, retention);
    }
    transaction.commit();
    return id;
  } catch (const SQLite::Exception& failure) {
    use.fail(failure.what());
    throw_database_failure(file_, kKind, failure);
  }
}

// The oldest records beyond the count, up to the first that is too young. By a clock that may be wrong any record can
// seem old: then the count alone decides, with room for those that a right one would keep. The records are in the order
// of their times as long as nobody sets the clock back; where somebody did, those after a young one wait for it. A few
// go with each record that comes, so that nobody waits for many, and the file shrinks after them.
void AuditFile::prune(std::int64_t newest, const AuditEntry& entry, const AuditRetention& retention) {
  const std::int64_t keep = retention.knows_ages ? retention.keep : 2 * retention.keep;
  const std::int64_t youngest =
      retention.knows_ages ? entry.at - retention.youngest_to_go : std::numeric_limits<std::int64_t>::max();
  SQLite::Statement oldest(database_, "SELECT id, at FROM audit_logs WHERE id < ? ORDER BY id LIMIT ?");
  oldest.bind(1, newest - keep + 1);
  oldest.bind(2, kMostToGo);
  int found = 0;
  std::int64_t last = 0;
  for (; oldest.executeStep() && oldest.getColumn(1).getInt64() <= youngest; ++found) {
    last = oldest.getColumn(0).getInt64();
  }
  oldest.reset();
  SQLite::Statement remove(database_, "DELETE FROM audit_logs WHERE id <= ?");
  remove.bind(1, last);
  remove.exec();
  const bool has_room = database_.execAndGet("PRAGMA freelist_count").getInt() > kFreePages;
  if (has_room) {
    database_.exec("PRAGMA incremental_vacuum(" + std::to_string(kPagesBack) + ")");
  }
  next_prune_ = newest + (found == kMostToGo || has_room ? 1 : kPruneEvery);
}

void AuditLog::read(const std::filesystem::path& directory, const AuditFilter& filter,
                    const std::function<void(const AuditEntry&)>& take) {
  const auto file = directory / kFileName;
  auto database = open_database_to_read(file, kKind);
  if (!database.has_value()) {
    return;
  }
  try {
    SQLite::Statement query(*database, question(filter));
    AuditEntry entry;  // the same for all, so that its texts keep their room
    while (query.executeStep()) {
      entry.id = query.getColumn(0).getInt64();
      entry.at = query.getColumn(1).getInt64();
      assign(entry.record.time, query.getColumn(2));
      entry.record.type = query.getColumn(3).getInt();
      assign(entry.record.details, query.getColumn(4));
      take(entry);
    }
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(file, kKind, failure);
  }
}

StoreReport AuditLog::inspect(const std::filesystem::path& directory) {
  return inspect_database("audit", directory / kFileName, kKind, [](SQLite::Database& database, StoreReport& report) {
    RecordCheck check;
    check_from(database, "0", check);
    report.content = check.summary();
    report.faults.insert(report.faults.end(), check.faults().begin(), check.faults().end());
  });
}

}  // namespace refhost
