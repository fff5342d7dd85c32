#include "door/cli/audit_export.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string_view>

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
  return entry.at == 0 ? with_zone(entry.record.time)
                       : iso_time(std::chrono::system_clock::time_point(std::chrono::milliseconds(entry.at)));
}

// The time as whoever wrote the record gave it, in the form of the other. Where both are of the same hour they have the
// same zone, which is found for the other already: finding it takes longer than all else of a record.
std::string given_time(const std::string& time, const std::string& written) {
  constexpr std::size_t kDate = 10;
  constexpr std::size_t kHour = 2;
  constexpr std::size_t kZone = 23;  // where it begins, behind the milliseconds
  const bool is_same_hour = time.size() == kZone && written.size() > kZone && time[kDate] == ' ' &&
                            written[kDate] == 'T' && time.compare(0, kDate, written, 0, kDate) == 0 &&
                            time.compare(kDate + 1, kHour, written, kDate + 1, kHour) == 0;
  return is_same_hour ? time.substr(0, kDate) + "T" + time.substr(kDate + 1) + written.substr(kZone) : with_zone(time);
}

bool is_number(const std::string& text) {
  double number = 0;
  const std::size_t sign = text.starts_with('+') || text.starts_with('-') ? 1 : 0;
  const auto result = std::from_chars(text.data() + sign, text.data() + text.size(), number);
  return result.ec == std::errc() && result.ptr == text.data() + text.size() &&
         std::isdigit(static_cast<unsigned char>(text[sign])) != 0;
}

// A spreadsheet takes a cell that begins like this for a formula, and runs it. Behind an apostrophe it is a text. One
// of the text's own gets another, so that a reader takes the first away and has the text.
std::string without_formula(const std::string& text) {
  const bool is_formula = !text.empty() && std::string_view("=+-@\t\r\n'").find(text[0]) != std::string_view::npos;
  return is_formula && !is_number(text) ? "'" + text : text;
}

// A cell as RFC 4180 has it.
std::string cell(const std::string& content) {
  const std::string text = without_formula(content);
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

// In pieces: a call of the system for each record would take longer than the record.
void write_all(const AuditOptions& options, const std::function<void(const std::string&)>& write) {
  constexpr std::size_t kPiece = 64UL * 1024;
  const auto filter = filter_of(options);
  std::string piece = audit_heading(options.form);
  refhost::AuditLog::read(existing_state(options.state), filter, [&](const AuditEntry& entry) {
    piece += audit_line(entry, options.form);
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
  const std::string written = time_text(entry);
  switch (form) {
    case AuditForm::table:
      return padded(std::to_string(entry.id), 8) + padded(refhost::log::escape(written), 29) +
             padded(label_of(type), 7) + refhost::log::escape(details) + "\n";
    case AuditForm::csv:
      return std::to_string(entry.id) + "," + cell(written) + "," + cell(label_of(type)) + "," + cell(details) + "," +
             cell(given_time(time, written)) + "\r\n";
    default:
      break;
  }
  const nlohmann::ordered_json object = {{"id", entry.id},
                                         {"written", written},
                                         {"type", label_of(type)},
                                         {"details", details},
                                         {"time", given_time(time, written)}};
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
