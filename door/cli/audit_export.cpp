#include "door/cli/audit_export.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string_view>

#include "cli/output_file.h"
#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"

namespace achost {
namespace {

using refhost::AuditEntry;
using refhost::kAuditTypes;

// Nobody reads any more.
struct NoReader {};

int type_of(const std::string& label) {
  const auto* const found = std::ranges::find(kAuditTypes, label);
  if (found == std::end(kAuditTypes)) {
    std::string all;
    for (const auto known : kAuditTypes) {
      all += (all.empty() ? "" : ", ") + std::string(known);
    }
    throw Failure(kUsage, "there is no audit type \"" + label + "\": there are " + all);
  }
  return static_cast<int>(found - std::begin(kAuditTypes));
}

refhost::AuditFilter filter_of(const AuditOptions& options) {
  refhost::AuditFilter filter;
  for (const auto& type : options.types) {
    filter.types.push_back(type_of(type));
  }
  if (!options.since.empty()) {
    filter.since = time_of(options.since);
  }
  if (!options.until.empty()) {
    filter.until = time_of(options.until);
  }
  filter.last = options.last;
  return filter;
}

// In pieces: a call of the system for each record would take longer than the record.
void write_all(const AuditOptions& options, const std::function<void(const std::string&)>& write) {
  constexpr std::size_t kPiece = 64UL * 1024;
  const auto filter = filter_of(options);
  AuditLines lines(options.form);
  std::string piece = lines.heading();
  refhost::AuditLog::read(existing_state(options.state), filter, [&](const AuditEntry& entry) {
    lines.append(piece, entry);
    if (piece.size() >= kPiece) {
      write(piece);
      piece.clear();
    }
  });
  write(piece);
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
