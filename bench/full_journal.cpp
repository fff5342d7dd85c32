#include "full_journal.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <string>

#include "door/journal/journal.h"
#include "refhost/database.h"

void fill_journal(const std::filesystem::path& directory, int entries) {
  { const achost::Journal makes_the_file(directory); }
  SQLite::Database database(directory / "journal.db", SQLite::OPEN_READWRITE);
  refhost::add_row_sum(database);
  const std::string number = std::to_string(entries);
  database.exec("PRAGMA synchronous = OFF");
  database.exec(
      "INSERT INTO entries(number, kind, at, zone, monotonic, boot, trusted, user, card, fields, sum) "
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
      number + "), some AS (SELECT i, 1 + i % 3 AS kind, (strftime('%s', 'now') - 15 * (" + number +
      " - i)) * 1000 AS at, CASE WHEN i % 3 = 0 THEN 1 + i / 3 % 1000 END AS user, "
      "CASE WHEN i % 3 = 0 THEN (1 + i / 3 % 1000) * 7919 END AS card, '{\"outcome\":\"opens\"}' AS fields FROM n) "
      "SELECT i, kind, at, 0, 0, 1, 0, user, card, fields, row_sum(i, kind, at, 0, 0, 1, 0, user, card, fields) "
      "FROM some");
  database.exec("PRAGMA wal_checkpoint(TRUNCATE)");
}
