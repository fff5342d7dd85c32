#include <SQLiteCpp/SQLiteCpp.h>

#include <string>

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
  if (filter.since.has_value()) {
    const auto since = std::to_string(*filter.since);
    where += " AND at >= " + since + " AND " + not_before("last >= " + since);
  }
  if (filter.until.has_value()) {
    const auto until = std::to_string(*filter.until);
    where += " AND at < " + until + " AND " + not_after("first < " + until, "at < " + until);
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

}  // namespace

void AuditLog::read(const std::filesystem::path& directory, const AuditFilter& filter,
                    const std::function<void(const AuditEntry&)>& take) {
  const auto file = audit_file_in(directory);
  auto database = open_database_to_read(file, kAuditKind);
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
    throw_database_failure(file, kAuditKind, failure);
  }
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
