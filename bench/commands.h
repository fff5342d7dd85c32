// Commands as processes of their own, beside SQLite alone.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

template <typename Work>
double milliseconds(const Work& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

// Run a program to its end, its output dropped. Throws std::runtime_error when it fails.
void run(std::vector<std::string> words);

struct Command {
  std::string what;
  std::vector<std::string> words;
  std::vector<double> times = {};
};

// Each command beside the bare question, turn by turn; a row for each.
void compare(std::vector<Command> commands, const std::filesystem::path& file, const std::string& what,
             const char* question);
