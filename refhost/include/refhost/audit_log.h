// The audit log.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace refhost {

struct AuditRecord {
  std::string time;
  int type = 0;
  std::string details;
};

// The records in the SQLite file audit.db. Any thread may call.
class AuditLog {
 public:
  // Open DIRECTORY/audit.db; directory (mode 0700) and file are made when missing. Throws ac::ac_exception, with
  // nothing changed, when the file is no audit database or is of a newer version.
  explicit AuditLog(const std::filesystem::path& directory);
  ~AuditLog();
  AuditLog(const AuditLog&) = delete;
  AuditLog& operator=(const AuditLog&) = delete;

  // Append a record; it is on the disk when the call returns. Returns its number, counted from 1. Throws
  // ac::ac_exception, which names the file.
  std::int64_t append(const AuditRecord& record);

  // Close the file for good, at the end of the process. A thread that appends from now on waits for that end.
  void seal();

  // The log behind ac_dal::audit_logs, null at the start. A log that is current must not be destroyed while other
  // threads run.
  static AuditLog* current() noexcept;
  static void make_current(AuditLog* log) noexcept;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace refhost
