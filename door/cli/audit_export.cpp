#include "door/cli/audit_export.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string_view>
#include <utility>

#include "cli/output_file.h"
#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/cli/request.h"
#include "door/control/audit_commands.h"

namespace achost {
namespace {

using refhost::AuditEntry;

// Nobody reads any more.
struct NoReader {};

Json request_of(const AuditOptions& options) {
  std::ranges::for_each(options.types, audit_type_of);  // what is none is said before anything else
  refhost::AuditFilter filter;
  if (!options.since.empty()) {
    filter.since = time_of(options.since);
  }
  if (!options.until.empty()) {
    filter.until = time_of(options.until);
  }
  filter.last = options.last;
  return audit_request(options.types, filter);
}

// In pieces: a call of the system for each record would take longer than the record.
void write_all(const AuditOptions& options, const std::function<void(const std::string&)>& write) {
  const Json request = request_of(options);
  StoreOwner owner(existing_state(options.state));
  AuditLines lines(options.form);
  std::string piece = lines.heading();
  ask_for_parts(owner, request, [&](const Json& answer, std::string_view bytes) {
    unpack_audit(answer, bytes, [&](const AuditEntry& entry) { lines.append(piece, entry); });
    write(std::exchange(piece, ""));
  });
}

void write_file(const AuditOptions& options) {
  OutputFile file(options.output, OutputFile::Form::whole);
  write_all(options, [&](const std::string& text) { file.write(text); });
  file.close();
}

}  // namespace

void export_audit(const AuditOptions& options) {
  if (!options.output.empty()) {
    return write_file(options);
  }
  try {
    write_all(options, [](const std::string& text) {
      if (!print(text)) {
        throw NoReader();
      }
    });
  } catch (const NoReader&) {
  }
}

}  // namespace achost
