// The plug-in's debug lines.
#pragma once

#include <string>

#include "ac/vexlog.h"

// Writes a line to the host's debug log. function, line: where it comes from. Filters of the log know some lines by
// their numbers, so those stay when the code moves.
inline void debugLog(const std::string& text, const char* function, int line) {
  ac::vexlog::debug(text, "uhf/src/source/uhf", function, line);
}
