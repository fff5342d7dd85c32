// A command line that helps whoever has mistyped it.
#pragma once

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

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

// Checks that a value is a whole number that fits.
inline CLI::Validator whole_number() {
  return CLI::Validator(
      [](std::string& text) {
        std::int64_t value{};
        return CLI::detail::lexical_cast(text, value) ? std::string() : "\"" + text + "\" is no whole number";
      },
      "");
}

// Checks that a value is one of these words, in capitals or not.
inline CLI::Validator one_of(const std::vector<std::string>& words) {
  return CLI::Validator(
      [words](std::string& text) {
        const bool known = std::ranges::find(words, CLI::detail::to_lower(text)) != words.end();
        return known ? std::string() : "\"" + text + "\" is none of " + CLI::detail::join(words, ", ");
      },
      "");
}

}  // namespace cli
