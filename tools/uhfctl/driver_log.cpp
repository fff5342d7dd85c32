// The debug log that the driver writes to, which is a host's part: here standard error, when asked for.
#include <cstdio>
#include <cstdlib>

#include "ac/vexlog.h"

namespace ac::vexlog {

void debug(const std::string& text, const char* source_file, const char* function, int line) {
  static const bool wanted = std::getenv("UHFCTL_DEBUG") != nullptr;
  if (wanted) {
    std::fprintf(stderr, "uhfctl: %s:%s:%d: %s\n", source_file, function, line, text.c_str());
  }
}

}  // namespace ac::vexlog
