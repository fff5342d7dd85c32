#include "refhost/state_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace refhost {
namespace {

constexpr mode_t kForOwner = 0600;
constexpr mode_t kForGroup = 0660;

// The directory's owner may put anything in the place of a file. Root gives away only what nobody else has a name for:
// neither what a link leads to, which O_NOFOLLOW sees to, nor a file with a second name.
bool may_be_given(const struct stat& file) {
  return (S_ISREG(file.st_mode) || S_ISSOCK(file.st_mode)) && file.st_nlink == 1;
}

// fd: of any kind, also one that is only a place (O_PATH).
void give(int fd, const std::filesystem::path& directory) noexcept {
  struct stat owner {};
  struct stat file {};
  if (stat(directory.c_str(), &owner) != 0 || fstat(fd, &file) != 0 || !may_be_given(file)) {
    return;
  }
  const bool is_new = file.st_size == 0;
  const bool is_strange = geteuid() == 0 && (file.st_uid != owner.st_uid || file.st_gid != owner.st_gid);
  if (!is_new && !is_strange) {
    return;  // its mode may be its owner's wish
  }
  const uid_t user = geteuid() == 0 ? owner.st_uid : file.st_uid;
  const bool given =
      (file.st_uid == user && file.st_gid == owner.st_gid) || fchownat(fd, "", user, owner.st_gid, AT_EMPTY_PATH) == 0;
  const bool is_shared = given && (owner.st_mode & S_IWGRP) != 0;
  std::array<char, 32> place{};  // fchmod() takes no place
  std::snprintf(place.data(), place.size(), "/proc/self/fd/%d", fd);
  [[maybe_unused]] const int refused = chmod(place.data(), is_shared ? kForGroup : kForOwner);
}

}  // namespace

int open_state_file(const std::filesystem::path& file) {
  const auto directory = file.parent_path();
  const int fd = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kForOwner);
  if (fd >= 0) {
    give(fd, directory);
  }
  return fd;
}

void give_to_directorys_owner(const std::filesystem::path& file) {
  const auto directory = file.parent_path();
  if (const int fd = open(file.c_str(), O_PATH | O_CLOEXEC | O_NOFOLLOW); fd >= 0) {
    give(fd, directory);
    close(fd);
  }
}

}  // namespace refhost
