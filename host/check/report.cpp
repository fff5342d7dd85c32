#include "report.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <utility>

namespace hostcheck {
namespace {

constexpr std::size_t kMostTold = 3;

void tell(const std::string& line) { std::fprintf(stderr, "hostcheck: %s\n", line.c_str()); }

// As an attribute: what a message holds may be anything.
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
        result += static_cast<unsigned char>(c) < 0x20 ? '?' : c;
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

std::string Report::junit_of(std::size_t index) const {
  const auto& entry = entries_[index];
  const auto& clause = kClauses[index];
  std::string text = "  <testcase classname=\"" + escaped(chapter_of(clause)) + "\" name=\"" + escaped(clause.number) +
                     " " + escaped(clause.sentence) + "\"";
  if (!entry.findings.empty()) {
    return text + "><failure message=\"" + escaped(joined(entry.findings)) + "\"/></testcase>\n";
  }
  if (entry.is_current && entry.state == State::examined) {
    return text + "><error message=\"the process ended while this was examined\"/></testcase>\n";
  }
  if (entry.state != State::examined) {
    return text + "><skipped message=\"" + escaped(entry.reason) + "\"/></testcase>\n";
  }
  return text + "/>\n";
}

void Report::write_junit() const {
  static const char* const path = std::getenv("HOSTCHECK_JUNIT");
  if (path == nullptr) {
    return;
  }
  const auto count = [this](auto which) { return std::to_string(std::ranges::count_if(entries_, which)); };
  const std::string part = std::string(path) + ".part";  // nobody is to read a half
  std::ofstream file(part, std::ios::trunc);
  file << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"hostcheck\" tests=\"" << entries_.size()
       << "\" failures=\"" << count([](const Entry& entry) { return !entry.findings.empty(); }) << "\" errors=\""
       << count([](const Entry& entry) {
            return entry.is_current && entry.findings.empty() && entry.state == State::examined;
          })
       << "\" skipped=\"" << count([](const Entry& entry) { return entry.state != State::examined; }) << "\">\n";
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    file << junit_of(i);
  }
  file << "</testsuite>\n";
  file.close();
  static bool has_failed = false;  // guarded by the lock, too
  if ((!file || std::rename(part.c_str(), path) != 0) && !std::exchange(has_failed, true)) {
    tell(std::string(path) +
         " cannot be written: set HOSTCHECK_JUNIT to a file in a directory that this process may write to");
  }
}

}  // namespace hostcheck
