#include "door/base/output.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "door/base/failure.h"

namespace achost {

namespace {

// 0 or the errno.
int write_output(const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t written = write(STDOUT_FILENO, text.data() + done, text.size() - done);
    if (written < 0 && errno != EINTR) {
      return errno;
    }
    done += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
  }
  return 0;
}

}  // namespace

bool print(const std::string& text) {
  const int reason = write_output(text);
  if (reason != 0 && reason != EPIPE) {
    throw Failure(kFailed, std::string("cannot write to standard output: ") + std::strerror(reason));
  }
  return reason == 0;
}

bool wants_colour() {
  const char* const no_colour = std::getenv("NO_COLOR");
  return isatty(STDOUT_FILENO) != 0 && (no_colour == nullptr || *no_colour == '\0');
}

}  // namespace achost
