#include "report.h"

#include <algorithm>
#include <ostream>

namespace plugincheck {
namespace {

constexpr std::size_t kMostTold = 3;

// As an attribute: what a plug-in sends may be anything.
std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) > 0x7E ? '?' : c;
    }
  }
  return result;
}

std::string joined(const std::vector<std::string>& texts) {
  std::string result;
  for (const auto& text : texts) {
    result += (result.empty() ? "" : "; ") + text;
  }
  return result;
}

}  // namespace

Report::Entry* Report::entry_of(std::string_view number) {
  const auto* const clause = std::ranges::find(kClauses, number, &Clause::number);
  return clause == kClauses.end() ? nullptr : &entries_.at(static_cast<std::size_t>(clause - kClauses.begin()));
}

bool Report::counts(std::size_t index) const {
  return level_ == Level::uhf || kClauses[index].level == Level::contract;
}

void Report::examined(std::string_view number) {
  if (auto* const entry = entry_of(number)) {
    entry->is_examined = true;
  }
}

void Report::found(std::string_view number, const std::string& text) {
  auto* const entry = entry_of(number);
  if (entry == nullptr || !counts(static_cast<std::size_t>(entry - entries_.data()))) {
    return;
  }
  entry->is_examined = true;
  if (entry->findings.size() < kMostTold && std::ranges::find(entry->findings, text) == entry->findings.end()) {
    entry->findings.push_back(text);
  }
}

void Report::left_out(std::string_view number, const std::string& reason) {
  if (auto* const entry = entry_of(number)) {
    entry->reason = reason;
  }
}

bool Report::is_whole() const {
  return std::ranges::all_of(entries_, [](const Entry& entry) { return entry.findings.empty(); });
}

std::string Report::reason_of(std::size_t index) const {
  const auto& entry = entries_[index];
  if (!counts(index)) {
    return "it is one of --level uhf";
  }
  return !entry.reason.empty() ? entry.reason
         : entry.is_examined   ? ""
                               : "what was found before leaves nothing to examine";
}

void Report::tell(std::ostream& out, bool tells_gaps) const {
  int examined = 0;
  int broken = 0;
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    const auto& clause = kClauses[i];
    for (const auto& text : entries_[i].findings) {
      out << "plugincheck: clause " << clause.number << ": " << text << "; " << clause.consequence
          << ". It must be: " << clause.sentence << '\n';
    }
    const auto reason = reason_of(i);
    if (tells_gaps && !reason.empty() && counts(i)) {
      out << "plugincheck: clause " << clause.number << " was not examined: " << reason << '\n';
    }
    examined += reason.empty() ? 1 : 0;
    broken += entries_[i].findings.empty() ? 0 : 1;
  }
  out << "plugincheck: " << examined << " of " << entries_.size() << " clauses examined, " << broken
      << " broken; docs/plugin-contract.md has them all\n";
}

std::string Report::junit_of(std::size_t index) const {
  const auto& entry = entries_[index];
  const auto& clause = kClauses[index];
  const std::string text = "  <testcase classname=\"" + escaped(chapter_of(clause)) + "\" name=\"" +
                           escaped(clause.number) + " " + escaped(clause.sentence) + "\"";
  if (!entry.findings.empty()) {
    return text + "><failure message=\"" + escaped(joined(entry.findings)) + "\"/></testcase>\n";
  }
  if (const auto reason = reason_of(index); !reason.empty()) {
    return text + "><skipped message=\"" + escaped(reason) + "\"/></testcase>\n";
  }
  return text + "/>\n";
}

std::string Report::junit() const {
  std::size_t failures = 0;
  std::size_t skipped = 0;
  std::string cases;
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    failures += entries_[i].findings.empty() ? 0 : 1;
    skipped += entries_[i].findings.empty() && !reason_of(i).empty() ? 1 : 0;
    cases += junit_of(i);
  }
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"plugincheck\" tests=\"" +
         std::to_string(entries_.size()) + "\" failures=\"" + std::to_string(failures) + "\" errors=\"0\" skipped=\"" +
         std::to_string(skipped) + "\">\n" + cases + "</testsuite>\n";
}

}  // namespace plugincheck
