#include "door/base/state_directory.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "door/base/failure.h"

namespace achost {

namespace {

// What was asked for, by the option or the environment; may be empty.
std::string asked_for(const std::string& wanted) {
  const char* const environment = std::getenv("ACHOST_STATE");
  return !wanted.empty() || environment == nullptr ? wanted : environment;
}

// A directory that cannot be looked at counts as there: opening it tells why.
bool is_missing(const std::filesystem::path& directory) {
  std::error_code failure;
  return !std::filesystem::is_directory(directory, failure) && (!failure || failure.value() == ENOENT);
}

}  // namespace

std::filesystem::path state_directory(const std::string& wanted) {
  const std::string asked = asked_for(wanted);
  return asked.empty() ? usual_state_directory(geteuid() == 0, std::getenv("XDG_STATE_HOME"), std::getenv("HOME"))
                       : std::filesystem::absolute(asked);
}

std::filesystem::path existing_state(const std::string& wanted) {
  auto directory = state_directory(wanted);
  if (is_missing(directory)) {
    const std::string option = asked_for(wanted).empty() ? "" : " --state " + directory.string();
    throw Failure(kFailed, "there is no state directory " + directory.string() + ": achost run" + option +
                               " makes it, or mkdir -p -m 700 " + directory.string());
  }
  return directory;
}

std::filesystem::path writable_state(const std::string& wanted) {
  if (!asked_for(wanted).empty()) {
    return existing_state(wanted);
  }
  auto directory = state_directory(wanted);
  if (is_missing(directory)) {
    std::fprintf(stderr, "achost: the state directory %s is made\n", directory.c_str());
  }
  return directory;
}

std::filesystem::path settings_state(const std::string& wanted) {
  return asked_for(wanted).empty() ? state_directory(wanted) : existing_state(wanted);
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
