#include "cli/output_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>

namespace achost {
namespace {

std::optional<mode_t> mode_of(const std::filesystem::path& place) {
  struct stat status {};
  return stat(place.c_str(), &status) == 0 ? std::optional(status.st_mode) : std::nullopt;
}

std::filesystem::path directory_of(const std::filesystem::path& place) {
  return place.has_parent_path() ? place.parent_path() : std::filesystem::path(".");
}

std::string unpredictable() {
  std::uint64_t number = 0;
  if (getrandom(&number, sizeof number, 0) != sizeof number) {
    throw OutputError("the system has no random numbers");
  }
  return std::to_string(number);
}

}  // namespace

OutputFile::OutputFile(const std::filesystem::path& path, Form form) : path_(path), place_(path) {
  refuse_foreign_link();
  const auto mode = mode_of(path);
  if (mode.has_value() && !S_ISREG(*mode)) {
    open_special();
  } else if (form == Form::growing) {
    open_growing();
  } else {
    open_whole();
  }
}

OutputFile::~OutputFile() {
  if (fd_ >= 0) {
    ::close(fd_);
  }
  if (!under_way_.empty()) {
    unlink(under_way_.c_str());
  }
}

void OutputFile::fail(const std::string& reason) const {
  throw OutputError("cannot write " + path_.string() + ": " + reason);
}

void OutputFile::refuse_foreign_link() const {
  struct stat status {};
  const bool is_link = lstat(path_.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
  if (is_link && status.st_uid != 0 && status.st_uid != geteuid()) {
    fail("it is a symbolic link of another user's; name the file that it leads to");
  }
}

void OutputFile::open_as(const std::filesystem::path& place, int flags) {
  fd_ = open(place.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC | flags, 0666);
  if (fd_ < 0) {
    fail(std::strerror(errno));
  }
}

void OutputFile::open_special() {
  open_as(path_, 0);
  struct stat status {};
  if (fstat(fd_, &status) != 0 || S_ISREG(status.st_mode)) {
    fail("another file stands there now");
  }
}

void OutputFile::open_growing() {
  if (mode_of(path_).has_value()) {
    throw OutputError(path_.string() + " is there already: give another name, or remove it");
  }
  open_as(path_, O_CREAT | O_EXCL | O_NOFOLLOW);
}

void OutputFile::open_whole() {
  std::error_code failure;
  if (std::filesystem::is_symlink(path_)) {
    place_ = std::filesystem::canonical(path_, failure);
    if (failure) {
      fail(failure.message());
    }
  }
  const auto beside = directory_of(place_) / ("." + place_.filename().string() + "." + unpredictable());
  open_as(beside, O_CREAT | O_EXCL | O_NOFOLLOW);
  under_way_ = beside;
  // Who could not read the one before cannot read this one.
  if (const auto mode = mode_of(place_); mode.has_value() && fchmod(fd_, *mode & 0777U) != 0) {
    fail(std::strerror(errno));
  }
}

void OutputFile::write(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(fd_, text.data(), text.size());
    if (written < 0 && errno != EINTR) {
      fail(std::strerror(errno));
    }
    text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
  }
}

void OutputFile::close() {
  if (!under_way_.empty()) {
    take_place();
  }
  if (::close(std::exchange(fd_, -1)) != 0) {
    fail(std::strerror(errno));
  }
}

void OutputFile::take_place() {
  if (fsync(fd_) != 0 || std::rename(under_way_.c_str(), place_.c_str()) != 0) {
    fail(std::strerror(errno));
  }
  under_way_.clear();
  if (const int directory = open(directory_of(place_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); directory >= 0) {
    fsync(directory);
    ::close(directory);
  }
}

}  // namespace achost
