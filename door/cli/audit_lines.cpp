#include "door/cli/audit_lines.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <nlohmann/json.hpp>
#include <string_view>

#include "door/cli/csv_cell.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

using refhost::AuditEntry;
using refhost::kAuditTypes;

template <typename Number>
void append_number(std::string& text, Number number) {
  std::array<char, 24> digits{};
  text.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

void append_label(std::string& text, int type) {
  const auto index = static_cast<std::size_t>(type);
  if (index < std::size(kAuditTypes)) {
    text += kAuditTypes[index];
  } else {
    append_number(text, type);
  }
}

// The written time in the form of the other. Where both are of the same hour they have the same zone, which is found
// for the other already: finding it takes longer than all else of a record.
void take_zone(std::string& time, const std::string& written) {
  constexpr std::size_t kDate = 10;
  constexpr std::size_t kHour = 2;
  constexpr std::size_t kZone = 23;  // where it begins, behind the milliseconds
  const bool is_same_hour = time.size() == kZone && written.size() > kZone && time[kDate] == ' ' &&
                            written[kDate] == 'T' && time.compare(0, kDate, written, 0, kDate) == 0 &&
                            time.compare(kDate + 1, kHour, written, kDate + 1, kHour) == 0;
  if (is_same_hour) {
    time[kDate] = 'T';
    time.append(written, kZone);
  } else {
    time = with_zone(time);
  }
}

// Whether it is the same in a table and in JSON. No loop that ends early: this one takes many characters at a time.
bool is_plain(const std::string& text) {
  bool plain = true;
  for (const char c : text) {
    plain &= static_cast<signed char>(c) >= ' ' && c != '"' && c != '\\' && c != '\x7f';
  }
  return plain;
}

void append_escaped(std::string& text, const std::string& content) {
  text += is_plain(content) ? content : refhost::log::escape(content);
}

void append_string(std::string& text, const std::string& content) {
  if (is_plain(content)) {
    text += '"';
    text += content;
    text += '"';
  } else {
    text += nlohmann::json(content).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  }
}

// To the end of a column that began there.
void pad(std::string& text, std::size_t begin, std::size_t width) {
  const std::size_t end = std::max(text.size(), begin + width);
  text.append(end + 2 - text.size(), ' ');
}

constexpr std::size_t kRecordWidth = 8;
constexpr std::size_t kWrittenWidth = 29;
constexpr std::size_t kTypeWidth = 7;

}  // namespace

std::string AuditLines::heading() const {
  if (form_ == AuditForm::csv) {
    return "id,written,type,details,time\r\n";
  }
  std::string text;
  if (form_ == AuditForm::table) {
    text = "RECORD";
    pad(text, 0, kRecordWidth);
    text += "WRITTEN";
    pad(text, kRecordWidth + 2, kWrittenWidth);
    text += "TYPE     DETAILS\n";
  }
  return text;
}

// The host's clock when the record was written; the given time where that is not known.
void AuditLines::find_times(const AuditEntry& entry) {
  written_.clear();
  if (entry.at == 0) {
    written_ = with_zone(entry.record.time);
  } else {
    times_.append(written_, entry.at);
  }
  given_ = entry.record.time;
  take_zone(given_, written_);
}

void AuditLines::append(std::string& text, const AuditEntry& entry) {
  find_times(entry);
  switch (form_) {
    case AuditForm::table:
      return append_table(text, entry);
    case AuditForm::csv:
      return append_csv(text, entry);
    default:
      return append_json(text, entry);
  }
}

void AuditLines::append_table(std::string& text, const AuditEntry& entry) const {
  std::size_t begin = text.size();
  append_number(text, entry.id);
  pad(text, begin, kRecordWidth);
  begin = text.size();
  append_escaped(text, written_);
  pad(text, begin, kWrittenWidth);
  begin = text.size();
  append_label(text, entry.record.type);
  pad(text, begin, kTypeWidth);
  append_escaped(text, entry.record.details);
  text += '\n';
}

void AuditLines::append_csv(std::string& text, const AuditEntry& entry) const {
  append_number(text, entry.id);
  text += ',';
  append_cell(text, written_);
  text += ',';
  append_label(text, entry.record.type);
  text += ',';
  append_cell(text, entry.record.details);
  text += ',';
  append_cell(text, given_);
  text += "\r\n";
}

void AuditLines::append_json(std::string& text, const AuditEntry& entry) const {
  text += "{\"id\":";
  append_number(text, entry.id);
  text += ",\"written\":";
  append_string(text, written_);
  text += ",\"type\":\"";
  append_label(text, entry.record.type);
  text += "\",\"details\":";
  append_string(text, entry.record.details);
  text += ",\"time\":";
  append_string(text, given_);
  text += "}\n";
}

}  // namespace achost
