#include "refhost/audit_log.h"
#include "refhost/send.h"

namespace refhost {

void announce(const AuditEntry& entry) {
  send("audit_log_created",
       {{"id", entry.id}, {"time", entry.record.time}, {"type", entry.record.type}, {"details", entry.record.details}});
}

}  // namespace refhost
