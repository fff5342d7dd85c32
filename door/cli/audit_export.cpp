#include "door/cli/audit_export.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string_view>

#include "cli/output_file.h"
#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "refhost/log_entry.h"

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

std::int64_t time_of(const std::string& text) {
  for (const char* format : {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S%z"}) {
    std::tm fields{};
    fields.tm_isdst = -1;
    const char* const end = strptime(text.c_str(), format, &fields);
    if (end == nullptr || *end != '\0') {
      continue;
    }
    const long offset = fields.tm_gmtoff;
    const int day = fields.tm_mday;
    const bool has_zone = std::strstr(format, "%z") != nullptr;
    const std::time_t seconds = has_zone ? timegm(&fields) - offset : std::mktime(&fields);
    if (fields.tm_mday == day) {  // else there is no such day
      return static_cast<std::int64_t>(seconds) * 1000;
    }
  }
  throw Failure(kUsage, "\"" + refhost::log::escape(text) +
                            "\" is no time: give 2026-01-31, \"2026-01-31 08:30\", \"2026-01-31 08:30:00\" or "
                            "2026-01-31T08:30:00+01:00");
}

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
