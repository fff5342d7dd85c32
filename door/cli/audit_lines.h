// The audit log's records as lines of text.
#pragma once

#include <string>

#include "door/base/local_time.h"
#include "refhost/audit_log.h"

namespace achost {

// How the records are written.
enum class AuditForm { table, csv, json };

// A table shows control characters as \n or \x1b, CSV is as RFC 4180 has it; a cell that a spreadsheet would take for a
// formula has an apostrophe before it. Millions of records are written in one go: nothing is made anew for each.
class AuditLines {
 public:
  explicit AuditLines(AuditForm form) : form_(form) {}

  std::string heading() const;

  // One record with its newline, to the end of the text.
  void append(std::string& text, const refhost::AuditEntry& entry);

 private:
  void find_times(const refhost::AuditEntry& entry);
  void append_table(std::string& text, const refhost::AuditEntry& entry) const;
  void append_csv(std::string& text, const refhost::AuditEntry& entry) const;
  void append_json(std::string& text, const refhost::AuditEntry& entry) const;

  const AuditForm form_;
  LocalTimes times_;
  std::string written_;  // of the record under way: when it was written,
  std::string given_;    // and the time as whoever wrote it gave it
};

}  // namespace achost
