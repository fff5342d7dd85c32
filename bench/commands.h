// Commands, timed from outside.
#pragma once

#include <chrono>
#include <string>
#include <vector>

// How long something takes.
template <typename Work>
double milliseconds(const Work& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

// Run the program with these arguments to its end; what it prints goes nowhere. Throws std::runtime_error when it
// fails.
void run(std::vector<std::string> words);
