#include "report.h"

#include <algorithm>
#include <ostream>

#include "host/report/junit.h"

namespace plugincheck {
namespace {

constexpr std::size_t kMostTold = 3;

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

std::string Report::outcome_of(std::size_t index) const {
  if (!entries_[index].findings.empty()) {
    return junit::failure(entries_[index].findings);
  }
  const auto reason = reason_of(index);
  return reason.empty() ? "" : junit::outcome("skipped", reason);
}

std::string Report::junit() const {
  junit::Counts counts{.all = entries_.size()};
  std::string cases;
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    const auto& clause = kClauses[i];
    const bool is_broken = !entries_[i].findings.empty();
    counts.failures += is_broken ? 1 : 0;
    counts.skipped += !is_broken && !reason_of(i).empty() ? 1 : 0;
    cases += junit::test_case(chapter_of(clause), std::string(clause.number) + " " + std::string(clause.sentence),
                              outcome_of(i));
  }
  return junit::suite("plugincheck", counts, cases);
}

}  // namespace plugincheck
