#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "uhfsim/command.h"

namespace uhfsim {

/// A scenario that cannot be read; what() is one line: NAME:LINE: what was found; what was expected. Without the line
/// when the file itself cannot be read.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What happens in the field and when, read from lines of text:
///
///   # a comment
///   at TIME COMMAND    COMMAND as parse_command() takes it; TIME from the start: 1.5, 2s or 500ms, up to 86400s
///   COMMAND            the same as at 0
///   loop TIME          at that time the field is cleared and all starts anew; at most one such line
///
/// A plain value: it holds no clock and does nothing by itself.
class Scenario {
 public:
  /// Time since the scenario's start, to the millisecond.
  using Time = std::chrono::milliseconds;

  /// Before everything that happens: the first call of due() begins here.
  static constexpr Time kBeforeStart{-1};

  /// Says whether the host beside the reader takes a line. Throws CommandError.
  using HostCheck = std::function<void(const std::string& line)>;

  /// A scenario in which nothing happens.
  Scenario() = default;

  /// Reads a file. Throws ScenarioError, also for a line that check does not take; without check every one is taken.
  static Scenario load(const std::string& path, const HostCheck& check = nullptr);

  /// Reads a text; name stands for the file in errors. Throws ScenarioError.
  static Scenario parse(std::string_view text, const std::string& name, const HostCheck& check = nullptr);

  /// What happens later than after and not later than until, in order; things of one instant in the order of their
  /// lines. Each start of a loop but the very first begins with ClearField.
  std::vector<Command> due(Time after, Time until) const;

  /// When the next thing happens later than after, or nothing if all is over.
  std::optional<Time> next(Time after) const;

 private:
  friend class ScenarioParser;

  struct Event {
    Time at;
    Command command;
  };

  std::vector<Event> events_;  // sorted by time, within one instant by line
  std::optional<Time> loop_;   // every event is earlier
};

}  // namespace uhfsim
