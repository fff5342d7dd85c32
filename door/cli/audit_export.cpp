#include "door/cli/audit_export.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "cli/output_file.h"
#include "door/base/failure.h"
#include "door/base/local_time.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

using refhost::AuditEntry;
using refhost::kAuditTypes;

// Nobody reads any more.
struct NoReader {};

std::string label_of(int type) {
  const auto index = static_cast<std::size_t>(type);
  return index < std::size(kAuditTypes) ? std::string(kAuditTypes[index]) : std::to_string(type);
}

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

// The host's clock when the record was written; the written time where that is not known.
std::string time_text(const AuditEntry& entry) {
  return entry.at == 0 ? entry.record.time
                       : iso_time(std::chrono::system_clock::time_point(std::chrono::milliseconds(entry.at)));
}

std::string quoted(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) {
    return text;
  }
  std::string result = "\"";
  for (const char c : text) {
    result += c == '"' ? "\"\"" : std::string(1, c);
  }
  return result + "\"";
}

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text + "  ";
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

void write_all(const AuditOptions& options, const std::function<void(const std::string&)>& write) {
  const auto directory = state_directory(options.state);
  const auto filter = filter_of(options);
  write(audit_heading(options.form));
  refhost::AuditLog::read(directory, filter, [&](const AuditEntry& entry) { write(audit_line(entry, options.form)); });
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

std::string audit_heading(AuditForm form) {
  switch (form) {
    case AuditForm::table:
      return padded("RECORD", 8) + padded("WRITTEN", 29) + padded("TYPE", 7) + "DETAILS\n";
    case AuditForm::csv:
      return "id,written,type,details,time\r\n";
    default:
      return "";
  }
}

std::string audit_line(const AuditEntry& entry, AuditForm form) {
  const auto& [time, type, details] = entry.record;
  switch (form) {
    case AuditForm::table:
      return padded(std::to_string(entry.id), 8) + padded(refhost::log::escape(time_text(entry)), 29) +
             padded(label_of(type), 7) + refhost::log::escape(details) + "\n";
    case AuditForm::csv:
      return std::to_string(entry.id) + "," + quoted(time_text(entry)) + "," + label_of(type) + "," + quoted(details) +
             "," + quoted(time) + "\r\n";
    default:
      break;
  }
  const nlohmann::ordered_json object = {
      {"id", entry.id}, {"written", time_text(entry)}, {"type", label_of(type)}, {"details", details}, {"time", time}};
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
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
