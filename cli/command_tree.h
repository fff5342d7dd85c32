// A command line's commands and options, walked through.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace cli {

// A command with the words that lead to it: none for the program itself.
struct Command {
  const CLI::App* app;
  std::string path;
};

std::vector<const CLI::App*> commands_of(const CLI::App& app);

// The program, and every command behind the one that it belongs to.
std::vector<Command> every_command(const CLI::App& app);

std::vector<const CLI::Option*> options_of(const CLI::App& app);

bool takes_value(const CLI::Option& option);

// "-h", "--help"; none for an argument.
std::vector<std::string> names_of(const CLI::Option& option);

// What stands for its value: "SECONDS", "[SECTION] KEY"; empty for a flag.
std::string value_name(const CLI::Option& option);

// What it means, its range and default behind it: "How long (0 to 10; default: 5)".
std::string meaning_of(const CLI::Option& option);

std::string joined(const std::vector<std::string>& words, const std::string& separator);

}  // namespace cli
