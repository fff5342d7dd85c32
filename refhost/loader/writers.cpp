#include "loader/writers.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace refhost {
namespace {

using Writers = std::map<std::string, std::string>;

struct stat status_of(const std::filesystem::path& place) {
  struct stat status {};
  if (lstat(place.c_str(), &status) != 0) {
    throw std::filesystem::filesystem_error("cannot look at", place, std::error_code(errno, std::generic_category()));
  }
  return status;
}

void add(const std::filesystem::path& place, Writers& writers) {
  const auto status = status_of(place);
  if (status.st_uid != 0 && status.st_uid != geteuid()) {
    writers.try_emplace("user " + std::to_string(status.st_uid), place);
  }
  // The mode of a symbolic link means nothing. In a directory with the sticky bit, as /tmp has it, nobody can move or
  // replace what is somebody else's.
  if (S_ISLNK(status.st_mode) || (S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0)) {
    return;
  }
  if ((status.st_mode & S_IWGRP) != 0 && status.st_gid != 0) {
    writers.try_emplace("group " + std::to_string(status.st_gid), place);
  }
  if ((status.st_mode & S_IWOTH) != 0) {
    writers.try_emplace("everyone", place);
  }
}

void add_all(const std::filesystem::path& path, Writers& writers) {
  std::filesystem::path place;
  for (const auto& part : path) {
    place /= part;
    add(place, writers);
  }
}

}  // namespace

Writers other_writers(const std::filesystem::path& path) {
  Writers writers;
  add_all(path, writers);
  add_all(std::filesystem::canonical(path), writers);
  return writers;
}

}  // namespace refhost
