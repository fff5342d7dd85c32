// What the examination has found.
#pragma once

#include <array>
#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

#include "clauses.h"

namespace hostcheck {

// Any thread. Each finding is told on standard error at once. The file that HOSTCHECK_JUNIT names is always that of the
// moment, so that it says where a process has ended that did not come to the end of the examination.
class Report {
 public:
  static Report& instance();

  // From here on these are examined: they hold unless something is found.
  void examine(std::initializer_list<ClauseId> clauses);

  // The clause is broken; text says what was seen, without a full stop. Only the first three of a clause are told.
  void found(ClauseId id, const std::string& text);

  // What is under examination is broken in a way of which there is no more to be said.
  void found_in_all_under_examination(const std::string& text);

  // The clause is not examined.
  void leave_out(ClauseId id, const std::string& reason);

  // All that has not been examined by now is left out.
  void leave_the_rest_out(const std::string& reason);

  // The clause is about the end of the process, which whoever has started it sees. It can still be found broken.
  void leave_to_the_end(ClauseId id);

  // Nothing is under examination any more; tell the sum, and once what was not examined.
  void finish();

  // What is under examination, for who is told where the process has ended; written with the lock, read without.
  const char* current() const { return current_.data(); }

 private:
  enum class State { waiting, examined, left_out };
  struct Entry {
    State state = State::waiting;
    bool is_current = false;
    std::vector<std::string> findings;
    std::string reason;  // of one that is left out
  };

  void add(std::size_t index, const std::string& text);
  void end_current();
  void note_current();
  void write_junit() const;
  static std::string outcome_of(const Entry& entry);
  std::string junit() const;

  mutable std::mutex mutex_;  // guards all below
  std::array<Entry, kClauses.size()> entries_;
  std::array<char, 128> current_{};
  bool has_finished_ = false;
};

inline Report& report() { return Report::instance(); }

}  // namespace hostcheck
