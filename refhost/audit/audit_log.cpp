#include "refhost/audit_log.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <sqlite3.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <utility>

#include "audit/audit_file.h"
#include "audit/audit_kind.h"
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
  explicit Impl(const std::filesystem::path& directory) : path(audit_file_in(directory)), care(path) {}

  const std::filesystem::path path;
  std::function<void(const AuditEntry&)> on_append;
  std::function<void(const std::vector<std::string>&)> on_damage;
  std::function<AuditRetention()> rule;
  std::mutex care_mutex;  // guards the two below; taken before the other
  StoreCare care;         // but for what any thread may call
  bool is_examined = false;
  std::mutex mutex;               // guards all below
  std::optional<AuditFile> file;  // empty once sealed

  // With the mutex held: what action() returns; who listens hears of damage that it has found.
  template <typename Action>
  auto with_damage_told(Action action) {
    const auto known = file->faults().size();
    const auto result = action();
    if (file->faults().size() != known && on_damage) {
      on_damage(file->faults());
    }
    return result;
  }
};

AuditLog::AuditLog(const std::filesystem::path& directory) : impl_(std::make_unique<Impl>(directory)) {
  make_state_directory(directory);
  impl_->file.emplace(directory, impl_->care);
}

AuditLog::~AuditLog() {
  AuditLog* self = this;
  current_log.compare_exchange_strong(self, nullptr);
}

void AuditLog::on_append(std::function<void(const AuditEntry&)> callback) { impl_->on_append = std::move(callback); }

void AuditLog::on_damage(std::function<void(const std::vector<std::string>&)> callback) {
  impl_->on_damage = std::move(callback);
}

void AuditLog::retain(std::function<AuditRetention()> rule) { impl_->rule = std::move(rule); }

std::int64_t AuditLog::append(const AuditRecord& record) {
  const std::lock_guard lock(impl_->mutex);
  AuditEntry entry{.id = 0, .at = now_ms(), .record = record};
  entry.id = impl_->with_damage_told([&] { return impl_->file->append(entry); });
  // With the lock held, so that the calls come in the order of the records.
  if (impl_->on_append) {
    impl_->on_append(entry);
  }
  return entry.id;
}

bool AuditLog::tidy() {
  const std::lock_guard lock_of_care(impl_->care_mutex);
  if (!impl_->is_examined) {
    examine();
    impl_->is_examined = true;
    return true;
  }
  const bool has_more = tidy_file();
  try {
    impl_->care.checkpoint();
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(impl_->path, kAuditKind, failure);
  }
  if (!has_more) {
    impl_->care.rest();
  }
  return has_more;
}

bool AuditLog::tidy_file() {
  const auto retention = impl_->rule ? impl_->rule() : AuditRetention{};
  const std::lock_guard lock(impl_->mutex);
  return impl_->file->tidy(retention, now_ms());
}

// Nobody waits for it but, once there is damage, who appends.
void AuditLog::examine() {
  std::optional<std::string> damage;
  std::string failure;
  try {
    damage = impl_->care.examine();
  } catch (const SQLite::Exception& thrown) {
    if (thrown.getErrorCode() == SQLITE_NOMEM) {
      throw_database_failure(impl_->path, kAuditKind, thrown);  // there will be memory again
    }
    failure = std::string("its pages cannot be examined (") + thrown.what() + "); examine the disk";
  }
  if (!damage.has_value() && failure.empty()) {
    return;
  }
  const std::lock_guard lock(impl_->mutex);
  impl_->with_damage_told([&] {
    if (damage.has_value() && !impl_->care.has_left()) {  // else an append has met the damage itself
      impl_->file->begin_anew(*damage);
    } else if (!failure.empty()) {
      impl_->file->add_fault(failure);
    }
    return true;
  });
}

std::vector<std::string> AuditLog::faults() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->file->faults();
}

void AuditLog::seal() {
  impl_->care.end();
  impl_->care_mutex.lock();  // for good, both
  impl_->mutex.lock();
  impl_->care.rest();
  impl_->file.reset();
}

AuditLog* AuditLog::current() noexcept { return current_log.load(); }

void AuditLog::make_current(AuditLog* log) noexcept { current_log.store(log); }

}  // namespace refhost
