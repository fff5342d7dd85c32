#include "refhost/audit_log.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <utility>

#include "audit/audit_file.h"
#include "refhost/database.h"

namespace refhost {
namespace {

// Set while the process starts, read by every record.
constinit std::atomic<AuditLog*> current_log{nullptr};

std::int64_t now_ms() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

}  // namespace

struct AuditLog::Impl {
  std::function<void(const AuditEntry&)> on_append;
  std::function<AuditRetention()> rule;
  std::vector<std::string> faults;  // of the opening
  std::mutex mutex;                 // guards all below
  std::optional<AuditFile> file;    // empty once sealed
};

AuditLog::AuditLog(const std::filesystem::path& directory) : impl_(std::make_unique<Impl>()) {
  make_state_directory(directory);
  impl_->file.emplace(directory);
  impl_->faults = impl_->file->faults();
}

AuditLog::~AuditLog() {
  AuditLog* self = this;
  current_log.compare_exchange_strong(self, nullptr);
}

void AuditLog::on_append(std::function<void(const AuditEntry&)> callback) { impl_->on_append = std::move(callback); }

void AuditLog::retain(std::function<AuditRetention()> rule) { impl_->rule = std::move(rule); }

std::int64_t AuditLog::append(const AuditRecord& record) {
  const auto retention = impl_->rule ? impl_->rule() : AuditRetention{};
  const std::lock_guard lock(impl_->mutex);
  AuditEntry entry{.id = 0, .at = now_ms(), .record = record};
  entry.id = impl_->file->append(entry, retention);
  // With the lock held, so that the calls come in the order of the records.
  if (impl_->on_append) {
    impl_->on_append(entry);
  }
  return entry.id;
}

const std::vector<std::string>& AuditLog::faults() const { return impl_->faults; }

void AuditLog::seal() {
  impl_->mutex.lock();  // for good
  impl_->file.reset();
}

AuditLog* AuditLog::current() noexcept { return current_log.load(); }

void AuditLog::make_current(AuditLog* log) noexcept { current_log.store(log); }

}  // namespace refhost
