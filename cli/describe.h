// A program's command line as a man page and as completions for shells, made from the same description as its help.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "cli/manual.h"

namespace cli {

// format: "man SECTION" (8, say), "bash", "zsh" or "fish". Throws std::invalid_argument for another.
std::string describe(const CLI::App& app, const Manual& manual, const std::string& format);

// Whether the arguments are "--describe FORMAT", which the help does not tell, as it is for packages; it is done then.
bool described(const CLI::App& app, const Manual& manual, int argc, char** argv);

}  // namespace cli
