// The SQLite file of the audit log.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "refhost/audit_log.h"
#include "refhost/store_watch.h"

namespace refhost {

// For one thread at a time. Each operation throws ac::ac_exception, which names the file.
class AuditFile {
 public:
  explicit AuditFile(const std::filesystem::path& directory);

  // Append the record, without regard to its id, and remove some of what the rule lets go.
  // Returns the record's number.
  std::int64_t append(const AuditEntry& entry, const AuditRetention& retention);

  // What was wrong with it when it was opened.
  const std::vector<std::string>& faults() const { return faults_; }

 private:
  void prune(std::int64_t newest, const AuditEntry& entry, const AuditRetention& retention);

  std::filesystem::path file_;
  StoreWatch watch_;
  std::vector<std::string> faults_;
  SQLite::Database database_;
  std::int64_t next_prune_ = 0;  // from which record on it is worth looking
};

}  // namespace refhost
