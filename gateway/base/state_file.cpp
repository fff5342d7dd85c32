#include "gateway/base/state_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
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

}  // namespace

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
