// The log of the host: the debug lines of the plug-ins and the host's own.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

// One line an entry on standard error: local time with milliseconds, level, thread, source:function:line, text. Control
// characters of the text are shown as \n, \t or \x1b, so an entry stays one line. Any thread may call, and none waits
// for standard error: what nobody takes is dropped, counted and said.
namespace refhost::log {

enum class Level { debug, info, warning, error, off };

// Entries below this level are left out. At the start: warning.
void set_threshold(Level level);

// Show card values in full. At the start the debug lines that carry one show its last four characters only.
void show_cards(bool show);

// Write a line of the program's own as it stands, without its newline, among the entries and past the threshold.
void say(const std::string& line);

// Wait until all entries are written; false when they are not after that time: for a process that ends.
bool drain(std::chrono::milliseconds longest);

// How many entries were dropped.
std::uint64_t lines_lost();

// Write an entry of the host's own. The place is the caller's, found by the compiler. (std::source_location would do
// the same, but clang 14 does not have it.)
void info(const std::string& text, const char* file = __builtin_FILE(), const char* function = __builtin_FUNCTION(),
          int line = __builtin_LINE());
void warning(const std::string& text, const char* file = __builtin_FILE(), const char* function = __builtin_FUNCTION(),
             int line = __builtin_LINE());
void error(const std::string& text, const char* file = __builtin_FILE(), const char* function = __builtin_FUNCTION(),
           int line = __builtin_LINE());

}  // namespace refhost::log
