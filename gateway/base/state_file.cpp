#include "gateway/base/state_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

namespace gateway {
namespace {

[[noreturn]] void fail(const std::filesystem::path& path, int reason) {
  throw std::runtime_error("cannot write " + path.string() + ": " + std::strerror(reason));
}

bool write_all(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(fd, text.data(), text.size());
    if (written < 0 && errno != EINTR) {
      return false;
    }
    text.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
  }
  return true;
}

std::string from_environment(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace

std::filesystem::path own_state(const std::string& program, const std::filesystem::path& given) {
  if (!given.empty()) {
    return given;
  }
  const std::string home = from_environment("HOME");
  return geteuid() == 0 || home.empty() ? std::filesystem::path("/var/lib") / program
                                        : std::filesystem::path(home) / ".local/state" / program;
}

std::filesystem::path daemons_state(const std::filesystem::path& given) {
  const std::string usual = from_environment("ACHOST_STATE");
  return !given.empty() ? given : !usual.empty() ? std::filesystem::path(usual) : "/var/lib/achost";
}

void give_to_owner_of(const std::filesystem::path& directory, int fd) {
  struct stat owner {};
  if (geteuid() == 0 && stat(directory.c_str(), &owner) == 0) {
    [[maybe_unused]] const int given = fchown(fd, owner.st_uid, owner.st_gid);
  }
}

void replace_file(const std::filesystem::path& path, std::string_view text) {
  const std::string under_way = path.string() + ".new";
  std::remove(under_way.c_str());
  const int fd = open(under_way.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) {
    fail(path, errno);
  }
  give_to_owner_of(path.parent_path(), fd);
  const bool is_written = write_all(fd, text) && fsync(fd) == 0;
  const int reason = errno;
  close(fd);
  if (!is_written) {
    std::remove(under_way.c_str());
    fail(path, reason);
  }
  if (std::rename(under_way.c_str(), path.c_str()) != 0) {
    fail(path, errno);
  }
}

}  // namespace gateway
