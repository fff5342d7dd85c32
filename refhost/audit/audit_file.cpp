#include "audit/audit_file.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

#include "audit/audit_kind.h"
#include "audit/record_check.h"
#include "refhost/log.h"

namespace refhost {
namespace {

// Removing is worth a look every so many records.
constexpr std::int64_t kPruneEvery = 100;

// What one step does at the most: whoever appends waits for it.
constexpr int kMostToGo = 250;
constexpr int kMostBlocks = 32;
constexpr int kPagesBack = 32;

// Free pages that may stay for the records to come.
constexpr int kFreePages = 64;

// The number is a part of what the checksum is over.
constexpr const char* kInsert =
    "INSERT INTO audit_logs(id, at, time, type, details, sum) "
    "SELECT next, ?1, ?2, ?3, ?4, row_sum(next, ?1, ?2, ?3, ?4) FROM (SELECT 1 + "
    "coalesce((SELECT seq FROM sqlite_sequence WHERE name = 'audit_logs'), 0) AS next)";

// A start looks at so many of the latest records: they are those that a crash or a damaged log can have touched.
constexpr int kCheckedAtOpen = 1000;

// Whether some was.
bool give_room_back(SQLite::Database& database) {
  const auto free_pages = [&] { return database.execAndGet("PRAGMA freelist_count").getInt(); };
  const int before = free_pages();
  if (before <= kFreePages) {
    return false;
  }
  database.exec("PRAGMA incremental_vacuum(" + std::to_string(kPagesBack) + ")");
  return free_pages() < before;
}

void remove_up_to(SQLite::Database& database, std::int64_t last) {
  SQLite::Transaction transaction(database);
  database.exec("DELETE FROM audit_logs WHERE id <= " + std::to_string(last));
  database.exec("DELETE FROM audit_times WHERE block < " + std::to_string((last + 1) >> kBlockShift));
  transaction.commit();
}

}  // namespace

AuditFile::Open::Open(SQLite::Database the_database) : database(std::move(the_database)), insert(database, kInsert) {}

std::filesystem::path audit_file_in(const std::filesystem::path& directory) { return directory / "audit.db"; }

AuditFile::AuditFile(const std::filesystem::path& directory, StoreCare& care)
    : file_(audit_file_in(directory)), watch_(file_), care_(care) {
  auto database = open_database(file_, kAuditKind, nullptr, &faults_);
  try {
    RecordCheck check;
    check_records(database, "(SELECT max(id) FROM audit_logs) - " + std::to_string(kCheckedAtOpen), check);
    for (const auto& fault : check.faults()) {
      add_fault(fault);
    }
    open(std::move(database));
  } catch (const SQLite::Exception& failure) {
    if (!is_damage(failure)) {
      throw_database_failure(file_, kAuditKind, failure);
    }
    begin_anew(failure.what());
  }
}

void AuditFile::add_fault(const std::string& reason) {
  faults_.push_back(file_.string() + ": " + reason);
  log::error(faults_.back());
}

void AuditFile::open(SQLite::Database database) {
  auto fresh = std::make_unique<Open>(std::move(database));
  newest_ = fresh->database.execAndGet(kLastNumber);
  next_prune_ = next_block_ = 0;
  may_have_room_ = true;
  care_.relieve(fresh->database);
  open_ = std::move(fresh);
}

void AuditFile::begin_anew(const std::string& damage) {
  auto fresh = begin_database_anew(file_, kAuditKind, damage, &faults_);
  care_.leave();
  open(std::move(fresh));
}

std::int64_t AuditFile::insert(const AuditEntry& entry) {
  auto& insert = open_->insert;
  insert.tryReset();  // should the last time have failed
  insert.bindNoCopy(2, entry.record.time);
  insert.bindNoCopy(4, entry.record.details);
  insert.bind(1, entry.at);
  insert.bind(3, entry.record.type);
  insert.exec();
  newest_ = open_->database.getLastInsertRowid();
  insert.reset();
  return newest_;
}

std::int64_t AuditFile::append(const AuditEntry& entry) {
  StoreWatch::Use use(watch_, "an audit record");
  try {
    try {
      return insert(entry);
    } catch (const SQLite::Exception& failure) {
      if (!is_damage(failure)) {
        throw;
      }
      begin_anew(failure.what());
      return insert(entry);
    }
  } catch (const SQLite::Exception& failure) {
    use.fail(failure.what());
    throw_database_failure(file_, kAuditKind, failure);
  }
}

bool AuditFile::tidy(const AuditRetention& retention, std::int64_t now) {
  const bool has_times_to_note = (newest_ + 1) >> kBlockShift > next_block_;
  const bool has_to_prune = retention.keep > 0 && newest_ >= next_prune_;
  if (!has_times_to_note && !has_to_prune && !may_have_room_) {
    return false;
  }
  StoreWatch::Use use(watch_, "the removal of old audit records");
  try {
    if (has_times_to_note) {
      note_times(care_.database());
    } else if (has_to_prune) {
      prune(care_.database(), retention, now);
    } else {
      may_have_room_ = give_room_back(care_.database());
    }
    return true;
  } catch (const SQLite::Exception& failure) {
    use.fail(failure.what());
    throw_database_failure(file_, kAuditKind, failure);
  }
}

void AuditFile::note_times(SQLite::Database& database) {
  const std::int64_t known = database.execAndGet(
      "SELECT coalesce((SELECT max(block) + 1 FROM audit_times), (SELECT min(id) FROM audit_logs) >> " +
      std::to_string(kBlockShift) + ", 0)");
  const std::int64_t next = std::max(known, next_block_);
  const std::int64_t end = std::min(next + kMostBlocks, (newest_ + 1) >> kBlockShift);
  if (next < end) {
    SQLite::Statement note(database,
                           "INSERT INTO audit_times(block, first, last, sum) "
                           "SELECT block, first, last, row_sum(block, first, last) FROM "
                           "(SELECT id >> ?3 AS block, min(at) AS first, max(at) AS last FROM audit_logs "
                           "WHERE id >= ?1 << ?3 AND id < ?2 << ?3 GROUP BY id >> ?3)");
    note.bind(1, next);
    note.bind(2, end);
    note.bind(3, kBlockShift);
    note.exec();
  }
  next_block_ = std::max(next, end);
}

// The oldest records beyond the count, up to the first that is too young. By a clock that may be wrong any record can
// seem old: then the count alone decides, with room for those that a right one would keep. The records are in the order
// of their times as long as nobody sets the clock back; where somebody did, those after a young one wait for it.
void AuditFile::prune(SQLite::Database& database, const AuditRetention& retention, std::int64_t now) {
  const std::int64_t keep = retention.knows_ages ? retention.keep : 2 * retention.keep;
  const std::int64_t youngest =
      retention.knows_ages ? now - retention.youngest_to_go : std::numeric_limits<std::int64_t>::max();
  SQLite::Statement oldest(database, "SELECT id, at FROM audit_logs WHERE id <= ? ORDER BY id LIMIT ?");
  oldest.bind(1, newest_ - keep);
  oldest.bind(2, kMostToGo);
  int found = 0;
  std::int64_t last = 0;
  for (; oldest.executeStep() && oldest.getColumn(1).getInt64() <= youngest; ++found) {
    last = oldest.getColumn(0).getInt64();
  }
  oldest.reset();
  if (found > 0) {
    remove_up_to(database, last);
  }
  // Room is given back at the end: before, records would be moved of which most are to go.
  if (found < kMostToGo) {
    next_prune_ = newest_ + kPruneEvery;
    may_have_room_ = true;
  }
}

}  // namespace refhost
