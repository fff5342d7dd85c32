#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "uhfsim/scenario.h"

namespace uhfsim {

/// Reads a scenario line by line. For one text.
class ScenarioParser {
 public:
  ScenarioParser(const std::string& name, const Scenario::HostCheck& check) : name_(name), check_(check) {}

  /// The scenario that the text describes. Throws ScenarioError.
  Scenario parse(std::string_view text);

 private:
  using Words = std::vector<std::string_view>;

  void read_line(const Words& words);
  void read_at(const Words& words);
  void read_loop(const Words& words);
  void read_event(Scenario::Time at, const Words& words);
  Scenario::Time read_time(std::string_view text) const;
  void check_reached();
  [[noreturn]] void fail(const std::string& found, const std::string& expected) const;
  [[noreturn]] void fail(const std::string& found_and_expected) const;

  const std::string& name_;
  const Scenario::HostCheck& check_;  // may be empty
  std::size_t line_ = 0;              // the one being read, from 1
  Scenario scenario_;
  std::vector<std::size_t> event_lines_;  // the line of each event, in the order of reading
};

}  // namespace uhfsim
