// The log of the host: the debug lines of the plug-ins and the host's own.
#pragma once

#include <source_location>
#include <string>

// One line an entry on standard error: local time with milliseconds, level, thread, source:function:line, text. Control
// characters of the text are shown as \n, \t or \x1b, so an entry stays one line. Any thread may call.
namespace refhost::log {

enum class Level { debug, info, warning, error, off };

// Entries below this level are left out. At the start: warning.
void set_threshold(Level level);

// Show card values in full. At the start the debug lines that carry one show its last four characters only.
void show_cards(bool show);

// Write an entry of the host's own.
void info(const std::string& text, std::source_location where = std::source_location::current());
void warning(const std::string& text, std::source_location where = std::source_location::current());
void error(const std::string& text, std::source_location where = std::source_location::current());

}  // namespace refhost::log
