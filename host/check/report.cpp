#include "report.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <utility>

#include "host/report/junit.h"

namespace hostcheck {
namespace {

constexpr std::size_t kMostTold = 3;

void tell(const std::string& line) { std::fprintf(stderr, "hostcheck: %s\n", line.c_str()); }

}  // namespace

// Never destroyed: the host's threads go on when the process ends.
Report& Report::instance() {
  static Report& report = *new Report;
  return report;
}

void Report::examine(std::initializer_list<ClauseId> clauses) {
  const std::lock_guard lock(mutex_);
  end_current();
  for (const auto clause : clauses) {
    entries_[clause.index()].state = State::examined;
    entries_[clause.index()].is_current = true;
  }
  note_current();
  write_junit();
}

void Report::end_current() {
  for (auto& entry : entries_) {
    entry.is_current = false;
  }
}

void Report::note_current() {
  std::string numbers;
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    if (entries_[i].is_current) {
      numbers.append(numbers.empty() ? "" : ", ").append(kClauses[i].number);
    }
  }
  numbers.resize(std::min(numbers.size(), current_.size() - 1));
  *std::ranges::copy(numbers, current_.begin()).out = '\0';
}

void Report::found(ClauseId id, const std::string& text) {
  const std::lock_guard lock(mutex_);
  add(id.index(), text);
}

void Report::found_in_all_under_examination(const std::string& text) {
  const std::lock_guard lock(mutex_);
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    if (entries_[i].is_current) {
      add(i, text);
    }
  }
}

void Report::add(std::size_t index, const std::string& text) {
  auto& entry = entries_[index];
  entry.state = State::examined;
  if (entry.findings.size() >= kMostTold || std::ranges::find(entry.findings, text) != entry.findings.end()) {
    return;
  }
  entry.findings.push_back(text);
  const auto& clause = kClauses[index];
  tell("clause " + std::string(clause.number) + ": " + text + "; " + std::string(clause.consequence));
  write_junit();
}

void Report::leave_out(ClauseId id, const std::string& reason) {
  const std::lock_guard lock(mutex_);
  auto& entry = entries_[id.index()];
  if (entry.findings.empty()) {
    entry.state = State::left_out;
    entry.reason = reason;
  }
}

void Report::leave_the_rest_out(const std::string& reason) {
  const std::lock_guard lock(mutex_);
  for (auto& entry : entries_) {
    if (entry.state == State::waiting) {
      entry.state = State::left_out;
      entry.reason = reason;
    }
  }
}

void Report::leave_to_the_end(ClauseId id) {
  const std::lock_guard lock(mutex_);
  entries_[id.index()] = {
      .state = State::left_out, .is_current = true, .findings = {}, .reason = "the process is to end now"};
  note_current();
  write_junit();
}

void Report::finish() {
  const std::lock_guard lock(mutex_);
  end_current();
  note_current();
  write_junit();
  const auto is_broken = [](const Entry& entry) { return !entry.findings.empty(); };
  const auto is_examined = [](const Entry& entry) { return entry.state == State::examined; };
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    if (!has_finished_ && !is_examined(entries_[i])) {
      tell("clause " + std::string(kClauses[i].number) + " was not examined: " + entries_[i].reason);
    }
  }
  has_finished_ = true;
  tell(std::to_string(std::ranges::count_if(entries_, is_examined)) + " of " + std::to_string(entries_.size()) +
       " clauses examined, " + std::to_string(std::ranges::count_if(entries_, is_broken)) +
       " broken; docs/host-contract.md has them all");
}

std::string Report::outcome_of(const Entry& entry) {
  if (!entry.findings.empty()) {
    return junit::failure(entry.findings);
  }
  if (entry.state != State::examined) {
    return junit::outcome("skipped", entry.reason);
  }
  return entry.is_current ? junit::outcome("error", "the process ended while this was examined") : "";
}

std::string Report::junit() const {
  junit::Counts counts{.all = entries_.size()};
  std::string cases;
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    const auto& entry = entries_[i];
    const auto& clause = kClauses[i];
    const std::string name = std::string(clause.number) + " " + std::string(clause.sentence);
    cases += junit::test_case(chapter_of(clause), name, outcome_of(entry));
    counts.failures += entry.findings.empty() ? 0 : 1;
    counts.errors += entry.findings.empty() && entry.is_current && entry.state == State::examined ? 1 : 0;
    counts.skipped += entry.state != State::examined ? 1 : 0;
  }
  return junit::suite("hostcheck", counts, cases);
}

void Report::write_junit() const {
  static const char* const path = std::getenv("HOSTCHECK_JUNIT");
  if (path == nullptr) {
    return;
  }
  const std::string part = std::string(path) + ".part";  // nobody is to read a half
  std::ofstream file(part, std::ios::trunc);
  file << junit();
  file.close();
  static bool has_failed = false;  // guarded by the lock, too
  if ((!file || std::rename(part.c_str(), path) != 0) && !std::exchange(has_failed, true)) {
    tell(std::string(path) +
         " cannot be written: set HOSTCHECK_JUNIT to a file in a directory that this process may write to");
  }
}

}  // namespace hostcheck
