// What every program with a command line does around its own work: it reads the line, and says why it ends.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <string_view>

#include "cli/manual.h"

namespace cli {

// Reads the command line; its callbacks run. False when that was all: it has asked for help, the version or a
// description, which is printed then. Throws Failure (kUsage) for a line that is wrong, and what a callback throws.
bool read_command_line(CLI::App& app, const Manual& manual, int argc, char** argv);

inline std::string as_it_is(std::string_view text) { return std::string(text); }

// What run returns. What it throws becomes a line on standard error, behind the program's name, spelt that way, and
// the status of the Failure, or kFailed.
int explained(const char* program, const std::function<int()>& run,
              const std::function<std::string(std::string_view)>& spelt = as_it_is);

}  // namespace cli
