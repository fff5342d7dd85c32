#include "refhost/instance_lock.h"

#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>

#include "ac/exception.h"
#include "refhost/database.h"
#include "refhost/state_file.h"

namespace refhost {
namespace {

// The holder's pid as it wrote it, or words when it has not come to that yet.
std::string holder(int fd) {
  std::array<char, 16> buffer{};
  const ssize_t length = pread(fd, buffer.data(), buffer.size() - 1, 0);
  return length > 0 ? "process " + std::string(buffer.data()) : "another process";
}

// Whether it could be had in that time.
bool lock(int fd, std::chrono::milliseconds patience) {
  constexpr std::chrono::milliseconds kPause(10);
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(kPause);  // the system's own wait has no end
  }
  return true;
}

int open_and_lock(const std::filesystem::path& directory, std::chrono::milliseconds patience) {
  make_state_directory(directory);
  const auto file = directory / "lock";
  const int fd = open_state_file(file);
  if (fd < 0) {
    if (errno == ELOOP) {
      throw ac::ac_exception(file.string() + " is a symbolic link, which this program has not made: remove it", true);
    }
    throw ac::ac_exception("cannot open " + file.string() + ": " + std::strerror(errno), true);
  }
  if (!lock(fd, patience)) {
    const std::string text = "the state directory " + directory.string() + " is in use by " + holder(fd) +
                             ": end it first, or give another directory with --state";
    close(fd);
    throw DirectoryInUse(text);
  }
  return fd;
}

}  // namespace

InstanceLock::InstanceLock(const std::filesystem::path& directory, std::chrono::milliseconds patience)
    : fd_(open_and_lock(directory, patience)) {
  const std::string pid = std::to_string(getpid());
  // The pid serves a message only: without it the lock holds all the same.
  if (ftruncate(fd_, 0) != 0 || pwrite(fd_, pid.data(), pid.size(), 0) < 0) {
    return;
  }
}

InstanceLock::~InstanceLock() { close(fd_); }

}  // namespace refhost
