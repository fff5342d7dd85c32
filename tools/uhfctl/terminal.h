// What uhfctl prints, and what ends it.
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace uhfctl {

// Data, on standard output. Throws Failure kFailed when it cannot be written; when nobody reads any more the program
// ends quietly.
void print(const std::string& text);

// An object as a line.
void print(const nlohmann::ordered_json& object);

// A note, on standard error.
void note(const std::string& text);

// Whether standard output, or standard error, is a terminal.
bool is_terminal();

// Of the terminal at standard output; 80 by 24 when it does not say.
struct TerminalSize {
  std::size_t columns = 80;
  std::size_t rows = 24;
};
TerminalSize terminal_size();

// Whether lines there can be replaced: not where TERM is dumb.
bool can_be_redrawn();
bool notes_are_seen();

// Between the text's ends, when standard output takes colours (a terminal, and NO_COLOR not set).
enum class Colour { green, yellow, red, bold, grey };
std::string coloured(Colour colour, const std::string& text);

// The rows with each column but the last as wide as its widest cell, a line each.
std::string table(const std::vector<std::vector<std::string>>& rows);

// A line of progress on standard error, in place of the one before; nothing when that is no terminal. An empty text
// takes it away.
void progress(const std::string& text);

// From now on Ctrl-C and SIGTERM only set what interrupted() tells.
void catch_interrupts();
bool interrupted();

// How long a command goes on: some seconds (0: does not end) from now on, and no longer than until Ctrl-C.
class Duration {
 public:
  explicit Duration(double seconds) : seconds_(seconds) {}

  bool is_over() const {
    return interrupted() || (seconds_ > 0 && passed() >= std::chrono::duration<double>(seconds_));
  }
  std::chrono::steady_clock::duration passed() const { return std::chrono::steady_clock::now() - begin_; }

 private:
  double seconds_;
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

// "12.3".
std::string seconds(std::chrono::nanoseconds time, int decimals = 1);

}  // namespace uhfctl
