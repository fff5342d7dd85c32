#include "door/base/state_directory.h"

#include <unistd.h>

#include <cstdlib>

#include "door/base/failure.h"

namespace achost {

std::filesystem::path state_directory(const std::string& wanted) {
  return wanted.empty() ? usual_state_directory(geteuid() == 0, std::getenv("XDG_STATE_HOME"), std::getenv("HOME"))
                        : std::filesystem::absolute(wanted);
}

std::filesystem::path usual_state_directory(bool is_root, const char* xdg_state_home, const char* home) {
  if (is_root) {
    return "/var/lib/achost";
  }
  // As the XDG base directories have it, a relative path counts as not set.
  if (xdg_state_home != nullptr && *xdg_state_home == '/') {
    return std::filesystem::path(xdg_state_home) / "achost";
  }
  if (home == nullptr || *home == '\0') {
    throw Failure(kUsage, "there is no home directory to keep the state in: give one with --state");
  }
  return std::filesystem::path(home) / ".local/state/achost";
}

}  // namespace achost
