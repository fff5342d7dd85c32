// The host's debug log.
#pragma once

#include <string>

namespace ac::vexlog {

// Write one debug line. source_file, function and line say where it comes from; both texts must be valid during the
// call only. May be called on any thread, with any lock held; never fails: a line that cannot be written is dropped.
void debug(const std::string& text, const char* source_file, const char* function, int line);

}  // namespace ac::vexlog
