#include "refhost/audit_log.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <atomic>
#include <mutex>
#include <optional>

#include "util/database.h"

namespace refhost {
namespace {

constexpr DatabaseKind kKind = {
    .noun = "audit log",
    .version = 1,
    .schema =
        "CREATE TABLE audit_logs(id INTEGER PRIMARY KEY AUTOINCREMENT, time TEXT NOT NULL, type INTEGER NOT NULL, "
        "details TEXT NOT NULL)",
    .probe = "SELECT id, time, type, details FROM audit_logs LIMIT 0",
    .way_out = "move it away, to be looked into, and a new one is begun",
};

// Set while the process starts, read by every record.
constinit std::atomic<AuditLog*> current_log{nullptr};

}  // namespace

struct AuditLog::Impl {
  std::filesystem::path file;
  std::mutex mutex;                          // guards database
  std::optional<SQLite::Database> database;  // empty once sealed
};

AuditLog::AuditLog(const std::filesystem::path& directory) : impl_(std::make_unique<Impl>()) {
  make_state_directory(directory);
  impl_->file = directory / "audit.db";
  impl_->database.emplace(open_database(impl_->file, kKind));
}

AuditLog::~AuditLog() {
  AuditLog* self = this;
  current_log.compare_exchange_strong(self, nullptr);
}

std::int64_t AuditLog::append(const AuditRecord& record) {
  const std::lock_guard lock(impl_->mutex);
  try {
    SQLite::Statement insert(*impl_->database, "INSERT INTO audit_logs(time, type, details) VALUES(?, ?, ?)");
    insert.bind(1, record.time);
    insert.bind(2, record.type);
    insert.bind(3, record.details);
    insert.exec();
    return impl_->database->getLastInsertRowid();
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(impl_->file, kKind, failure);
  }
}

void AuditLog::seal() {
  impl_->mutex.lock();  // for good
  impl_->database.reset();
}

AuditLog* AuditLog::current() noexcept { return current_log.load(); }

void AuditLog::make_current(AuditLog* log) noexcept { current_log.store(log); }

}  // namespace refhost
