#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include "uhfsim/simulated_reader.h"

namespace uhfsim {

/// Takes lines of commands and carries them out on a reader; answers go to one stream, errors to another.
/// For one thread.
class Console {
 public:
  Console(SimulatedReader& reader, std::ostream& answers, std::ostream& errors)
      : reader_(reader), answers_(answers), errors_(errors) {}

  /// Every command with its meaning, one a line.
  static std::string help();

  /// Takes a part of the input, which may end anywhere, and carries out the lines that it completes. Returns false
  /// when one of them was "quit"; what follows that line is not looked at. A line that is no command changes nothing
  /// and gives one line of error.
  bool feed(std::string_view text);

  /// The input is over: carries out a last line without an end, with the result of feed().
  bool finish();

 private:
  bool execute(std::string_view line);
  void list();
  void status();

  SimulatedReader& reader_;
  std::ostream& answers_;
  std::ostream& errors_;
  std::string rest_;  // of the input, without an end of line yet
};

}  // namespace uhfsim
