#include "ac_dal/audit_logs.h"

#include <utility>

#include "ac/exception.h"
#include "refhost/audit_log.h"

struct ac_dal::audit_logs::Impl {
  refhost::AuditRecord record;
};

namespace ac_dal {

ac_dao::ac_dao() = default;
ac_dao::~ac_dao() = default;

// A record of no kind has no table to go to.
void ac_dao::create() { throw ac::ac_exception("a record of no kind cannot be created", true); }

audit_logs::audit_logs() : impl_(std::make_unique<Impl>()) {}
audit_logs::~audit_logs() = default;

void audit_logs::time(std::string value) { impl_->record.time = std::move(value); }
void audit_logs::type(int value) { impl_->record.type = value; }
void audit_logs::details(std::string value) { impl_->record.details = std::move(value); }

void audit_logs::create() {
  refhost::AuditLog* const log = refhost::AuditLog::current();
  if (log == nullptr) {
    throw ac::ac_exception("no audit log is open", true);
  }
  log->append(impl_->record);
}

}  // namespace ac_dal
