#pragma once

#include <optional>
#include <string>
#include <vector>

#include "uhfsim/command.h"
#include "uhfsim/scenario.h"
#include "uhfsim/simulated_reader.h"

namespace uhfsim {

/// The program's exit statuses.
enum ExitStatus : int { kExitDone = 0, kExitFailed = 1, kExitUsage = 2 };

/// What the command line asks for.
struct Settings {
  Options reader;
  std::optional<Scenario> scenario;
  std::optional<std::string> link;
  std::optional<double> seconds;
  std::vector<Command> faults;
};

/// Reads the command line and the scenario file. Nothing is returned when the program is to end with the given status:
/// help has been shown, or one line on standard error says what is wrong.
std::optional<Settings> read_command_line(int argc, char** argv, int& status);

}  // namespace uhfsim
