// The SQLite file of the audit log.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "refhost/audit_log.h"
#include "refhost/store_care.h"
#include "refhost/store_watch.h"

namespace refhost {

// For one thread at a time. Each operation throws ac::ac_exception, which names the file.
class AuditFile {
 public:
  // care: of the same file; it outlives this.
  AuditFile(const std::filesystem::path& directory, StoreCare& care);

  // Append the record, without regard to its id; returns its number. A file that proves damaged is begun anew first.
  std::int64_t append(const AuditEntry& entry);

  // Do a little of what can wait, through the care's connection, and tell whether there is more: note the times of
  // records, remove some of what the rule lets go by that time, give some of their room back.
  bool tidy(const AuditRetention& retention, std::int64_t now);

  // Keep the file under another name, as it is damaged in that way, and begin a new one.
  void begin_anew(const std::string& damage);

  // It cannot be examined, for that reason.
  void add_fault(const std::string& reason);

  // What was wrong with it when it was opened, and since.
  const std::vector<std::string>& faults() const { return faults_; }

 private:
  struct Open {
    explicit Open(SQLite::Database the_database);

    SQLite::Database database;
    SQLite::Statement insert;  // kept, because every record needs it
  };

  void open(SQLite::Database database);
  std::int64_t insert(const AuditEntry& entry);
  void note_times(SQLite::Database& database);
  void prune(SQLite::Database& database, const AuditRetention& retention, std::int64_t now);

  std::filesystem::path file_;
  StoreWatch watch_;
  StoreCare& care_;
  std::vector<std::string> faults_;
  std::unique_ptr<Open> open_;
  std::int64_t newest_ = 0;      // record
  std::int64_t next_block_ = 0;  // of which the times are not noted; from the file when that is further on
  std::int64_t next_prune_ = 0;  // from which record on it is worth looking
  bool may_have_room_ = false;   // free pages, to be given back
};

// Where the audit log of a directory lies.
std::filesystem::path audit_file_in(const std::filesystem::path& directory);

}  // namespace refhost
