// What all scenes together have found.
#pragma once

#include <array>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "clauses.h"

namespace plugincheck {

// Used by one thread.
class Report {
 public:
  explicit Report(Level level) : level_(level) {}

  // A clause has been examined; number: as a scene tells it, of which nothing is believed.
  void examined(std::string_view number);

  // It is broken; text says what was seen, without a full stop. Only the first three of a clause are told.
  void found(std::string_view number, const std::string& text);

  void left_out(std::string_view number, const std::string& reason);

  bool is_whole() const;  // nothing was found

  // One line for each finding, for each clause that was not examined where all should have been, and the sum.
  void tell(std::ostream& out, bool tells_gaps) const;

  std::string junit() const;

 private:
  struct Entry {
    bool is_examined = false;
    std::vector<std::string> findings;
    std::string reason;  // why it was left out
  };

  Entry* entry_of(std::string_view number);
  bool counts(std::size_t index) const;  // at this level
  std::string reason_of(std::size_t index) const;
  std::string outcome_of(std::size_t index) const;

  Level level_;
  std::array<Entry, kClauses.size()> entries_;
};

}  // namespace plugincheck
