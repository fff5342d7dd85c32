#include "full_log.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <string>

#include "refhost/audit_log.h"

void fill_log(const std::filesystem::path& directory, int records) {
  { const refhost::AuditLog log(directory); }
  SQLite::Database database(directory / "audit.db", SQLite::OPEN_READWRITE);
  database.exec("PRAGMA synchronous = OFF");
  database.exec(
      "INSERT INTO audit_logs(time, type, details, at) WITH RECURSIVE records(i) AS (SELECT 0 UNION ALL SELECT i + 1 "
      "FROM records WHERE i < " +
      std::to_string(records - 1) +
      ") SELECT strftime('%Y-%m-%d %H:%M:%S', 1767323045 + 5 * i, 'unixepoch', 'localtime') || '.006', 1 + i % 8, "
      "'Config changed: [uhf]>[read_interval] [value=' || i || ']', (1767323045 + 5 * i) * 1000 + 6 FROM records");
  database.exec("PRAGMA wal_checkpoint(TRUNCATE)");
  refhost::AuditLog log(directory);
  while (log.tidy()) {
  }
}
