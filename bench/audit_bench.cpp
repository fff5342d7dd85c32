// What an audit record costs that is on the disk when the call returns, beside a bare SQLite insert with the same table
// and pragmas. Turn by turn, so that what else the disk does falls on both.
#include <SQLiteCpp/SQLiteCpp.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "ac_dal/audit_logs.h"
#include "refhost/audit_log.h"
#include "refhost/upkeep.h"
#include "store.h"
#include "table.h"

namespace {

constexpr int kRecords = 3000;

const std::string kTime = "2026-11-21 08:00:00.000";
const std::string kDetails = "read_interval: 1000 -> 500";

class Bare {
 public:
  explicit Bare(const std::filesystem::path& directory)
      : database_(directory / "bare.db", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE) {
    database_.exec("PRAGMA journal_mode = WAL");
    database_.exec("PRAGMA synchronous = FULL");
    database_.exec(
        "CREATE TABLE audit_logs(id INTEGER PRIMARY KEY AUTOINCREMENT, time TEXT NOT NULL, type INTEGER NOT NULL, "
        "details TEXT NOT NULL, at INTEGER NOT NULL DEFAULT 0)");
    insert_.emplace(database_, "INSERT INTO audit_logs(at, time, type, details) VALUES(?, ?, ?, ?)");
  }

  void append() {
    insert_->reset();
    insert_->bind(1, std::int64_t{1'795'000'000'000});
    insert_->bind(2, kTime);
    insert_->bind(3, 1);
    insert_->bind(4, kDetails);
    insert_->exec();
  }

 private:
  SQLite::Database database_;
  std::optional<SQLite::Statement> insert_;
};

void create() {
  ac_dal::audit_logs record;
  record.time(kTime);
  record.type(1);
  record.details(kDetails);
  record.create();
}

template <typename Work>
double microseconds(const Work& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace

int main() {
  const TemporaryDirectory directory;
  Bare bare(directory.path());
  // As achost sets it up.
  refhost::AuditLog log(directory.path());
  log.on_append([](const refhost::AuditEntry& entry) { refhost::announce(entry); });
  log.retain([] { return refhost::AuditRetention{.keep = 100'000, .youngest_to_go = 86'400'000}; });
  const refhost::Upkeep upkeep("upkeep", [&log] { return log.tidy(); });
  refhost::AuditLog::make_current(&log);
  std::vector<double> of_bare;
  std::vector<double> of_host;
  for (int i = 0; i < kRecords; ++i) {
    of_bare.push_back(microseconds([&] { bare.append(); }));
    of_host.push_back(microseconds(create));
  }
  const auto micro = [](double time) { return number(time) + " µs"; };
  print_row("host: an audit record, on the disk", micro(median(of_host)), ratio_of(median(of_host), median(of_bare)),
            "ratio 1.08");
  print_row("a bare SQLite insert with the same pragmas", micro(median(of_bare)));
  return 0;
}
