#include <SQLiteCpp/SQLiteCpp.h>
#include <sys/stat.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>

#include "audit/audit_file.h"
#include "audit/audit_kind.h"
#include "audit/record_check.h"
#include "refhost/database.h"

namespace refhost {
namespace {

const std::string kShift = std::to_string(kBlockShift);

// The first number that is in no block yet.
const std::string kTail = "(SELECT coalesce(max(block) + 1, 0) << " + kShift + " FROM audit_times)";

// One number of the blocks that may hold such records. A block that is not as it was written may hold any.
std::string of_blocks(const char* number, const std::string& may_match) {
  return std::string("(SELECT ") + number + "(block) FROM audit_times WHERE " + may_match +
         " OR sum IS NOT row_sum(block, first, last))";
}

// The records of a time lie together, unless somebody has set the clock: the blocks tell between which numbers, and the
// records between them are read in their order.
std::string not_before(const std::string& block_matches) {
  return "id >= coalesce(" + of_blocks("min", block_matches) + " << " + kShift + ", " + kTail + ")";
}

std::string not_after(const std::string& block_matches, const std::string& record_matches) {
  return "id <= coalesce((SELECT max(id) FROM audit_logs WHERE id >= " + kTail + " AND " + record_matches + "), ((" +
         of_blocks("max", block_matches) + " + 1) << " + kShift + ") - 1, 0)";
}

std::string question(const AuditFilter& filter) {
  std::string where = " NOT INDEXED WHERE 1";
  for (std::size_t i = 0; i < filter.types.size(); ++i) {
    where += (i == 0 ? " AND type IN (" : ", ") + std::to_string(filter.types[i]);
  }
  where += filter.types.empty() ? "" : ")";
  if (filter.range.has_value()) {
    where += " AND id > " + std::to_string(filter.range->after) + " AND id <= " + std::to_string(filter.range->to);
  }
  const bool looks_where = !filter.range.has_value();
  if (filter.since.has_value()) {
    const auto since = std::to_string(*filter.since);
    where += " AND at >= " + since + (looks_where ? " AND " + not_before("last >= " + since) : "");
  }
  if (filter.until.has_value()) {
    const auto until = std::to_string(*filter.until);
    where += " AND at < " + until + (looks_where ? " AND " + not_after("first < " + until, "at < " + until) : "");
  }
  const std::string columns = "SELECT id, at, time, type, details FROM ";
  return filter.last.has_value() ? columns + "(SELECT * FROM audit_logs" + where + " ORDER BY id DESC LIMIT " +
                                       std::to_string(*filter.last) + ") ORDER BY id"
                                 : columns + "audit_logs" + where + " ORDER BY id";
}

void assign(std::string& text, const SQLite::Column& column) {
  const char* const content = column.getText();
  text.assign(content, static_cast<std::size_t>(column.getBytes()));
}

// Which file stands there, whatever its name: device and inode; nothing when none does.
std::optional<std::pair<dev_t, ino_t>> identity_of(const std::filesystem::path& file) {
  struct stat status {};
  return stat(file.c_str(), &status) == 0 ? std::optional(std::pair(status.st_dev, status.st_ino)) : std::nullopt;
}

// The number of the first record that the question asks for.
std::optional<std::int64_t> first_of(SQLite::Database& database, const std::string& question) {
  SQLite::Statement query(database, question);
  return query.executeStep() ? std::optional(query.getColumn(0).getInt64()) : std::nullopt;
}

void hand_over(SQLite::Statement& query, const std::function<bool(const AuditEntry&)>& take) {
  AuditEntry entry;  // the same for all, so that its texts keep their room
  while (query.executeStep()) {
    entry.id = query.getColumn(0).getInt64();
    entry.at = query.getColumn(1).getInt64();
    assign(entry.record.time, query.getColumn(2));
    entry.record.type = query.getColumn(3).getInt();
    assign(entry.record.details, query.getColumn(4));
    if (!take(entry)) {
      return;
    }
  }
}

}  // namespace

struct AuditReader::Impl {
  explicit Impl(const std::filesystem::path& directory) : file(audit_file_in(directory)) {}

  // Open the file, unless it is; again when another has taken its place. With the mutex held.
  void look() {
    const auto now = identity_of(file);
    if (!database.has_value() || now != identity) {
      database.reset();
      database = open_database_to_read(file, kAuditKind);
      identity = now;
    }
  }

  // What action(database) does with the file open; nothing without a file.
  template <typename Action>
  void with(Action action) {
    const std::lock_guard lock(mutex);
    look();
    try {
      if (database.has_value()) {
        action(*database);
      }
    } catch (const SQLite::Exception& failure) {
      throw_database_failure(file, kAuditKind, failure);
    }
  }

  const std::filesystem::path file;
  std::mutex mutex;  // guards all below
  std::optional<SQLite::Database> database;
  std::optional<std::pair<dev_t, ino_t>> identity;  // of what is open
};

AuditReader::AuditReader(const std::filesystem::path& directory) : impl_(std::make_unique<Impl>(directory)) {}

AuditReader::~AuditReader() = default;

AuditRange AuditReader::range_of(const AuditFilter& filter) {
  AuditRange range;
  impl_->with([&](SQLite::Database& database) {
    AuditFilter newest = filter;
    newest.last = std::min<std::int64_t>(filter.last.value_or(1), 1);
    range.to = first_of(database, question(newest)).value_or(0);
    range.after = first_of(database, question(filter)).value_or(range.to + 1) - 1;
  });
  return range;
}

void AuditReader::read(const AuditFilter& filter, const std::function<bool(const AuditEntry&)>& take) {
  impl_->with([&](SQLite::Database& database) {
    SQLite::Statement query(database, question(filter));
    hand_over(query, take);
  });
}

void AuditReader::seal() {
  impl_->mutex.lock();  // for good
  impl_->database.reset();
}

void AuditLog::read(const std::filesystem::path& directory, const AuditFilter& filter,
                    const std::function<void(const AuditEntry&)>& take) {
  AuditReader(directory).read(filter, [&take](const AuditEntry& entry) {
    take(entry);
    return true;
  });
}

StoreReport AuditLog::inspect(const std::filesystem::path& directory) {
  return inspect_database("audit", audit_file_in(directory), kAuditKind,
                          [](SQLite::Database& database, StoreReport& report) {
                            RecordCheck check;
                            check_records(database, "0", check);
                            report.content = check.summary();
                            report.faults.insert(report.faults.end(), check.faults().begin(), check.faults().end());
                          });
}

}  // namespace refhost
