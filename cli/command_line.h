// A command line that helps whoever has mistyped it.
#pragma once

#include <CLI/CLI.hpp>
#include <sstream>
#include <string>

namespace cli {

// To be called before commands are added: their help names each value by what it is, with its range and default.
void set_up_help(CLI::App& app);

// What is wrong, one line: the word that is no command or option, and the nearest one; what the parser found otherwise.
std::string usage_error(const CLI::App& app, const CLI::ParseError& failure, int argc, const char* const* argv);

// Checks that a value is a number from least to most.
template <typename Number>
CLI::Validator range(Number least, Number most) {
  std::ostringstream limits;
  limits.precision(12);
  limits << +least << " to " << +most;
  return CLI::Validator(
      [least, most, limits = limits.str()](std::string& text) {
        Number value{};
        const bool good = CLI::detail::lexical_cast(text, value) && value >= least && value <= most;
        return good ? std::string() : "\"" + text + "\" is no number from " + limits;
      },
      limits.str());
}

}  // namespace cli
