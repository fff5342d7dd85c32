// The audit log, written out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "door/base/time_of.h"
#include "door/cli/audit_lines.h"

namespace achost {

struct AuditOptions {
  std::string state;
  std::vector<std::string> types;  // words of refhost::kAuditTypes
  std::string since;               // as time_of() takes it; empty: from the beginning
  std::string until;
  std::optional<std::int64_t> last;
  AuditForm form = AuditForm::table;
  std::string output;  // a file; empty: standard output
};

// Write the records. A file is written beside its name and then takes its place. Throws Failure, or ac::ac_exception
// when the log cannot be read.
void export_audit(const AuditOptions& options);

}  // namespace achost
