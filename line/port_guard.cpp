#include "line/port_guard.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/major.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>

#include "line/terminal.h"

namespace line {
namespace {

constexpr const char* kHowToFind = "list the ports with `ls /dev/serial/by-id`, or ";

bool is_number(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

using Directory = std::unique_ptr<DIR, decltype([](DIR* open) { closedir(open); })>;

// Empty when it cannot be looked into. There are thousands of files in all, and a start waits until each was looked at:
// so they are named from where they lie.
Directory open_directory(int from, const std::string& path) {
  const int fd = openat(from, path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) {
    return nullptr;
  }
  Directory directory(fdopendir(fd));
  if (directory == nullptr) {
    close(fd);
  }
  return directory;
}

// Whether the process has an open file that fits. Processes of other users cannot be looked into.
template <typename Predicate>
bool has_open(DIR* processes, const std::string& process, Predicate fits) {
  const auto files = open_directory(dirfd(processes), process + "/fd");
  while (const dirent* const entry = files == nullptr ? nullptr : readdir(files.get())) {
    struct stat file {};
    if (fstatat(dirfd(files.get()), entry->d_name, &file, 0) == 0 && S_ISCHR(file.st_mode) &&
        fits(entry->d_name, file.st_rdev)) {
      return true;
    }
  }
  return false;
}

// Whether the file of the process is the master of the pseudo-terminal with that number: the kernel tells it of masters
// only.
bool is_master_of(const std::string& process, const std::string& file, unsigned int number) {
  std::ifstream lines("/proc/" + process + "/fdinfo/" + file);
  const std::string wanted = "tty-index:\t" + std::to_string(number);
  for (std::string line; std::getline(lines, line);) {
    if (line == wanted) {
      return true;
    }
  }
  return false;
}

// Whether the process uses the device. One that holds the other end of a pseudo-terminal is the reader, not a rival,
// even where it keeps this end open too, so that the line stays up.
bool uses(DIR* processes, const std::string& process, dev_t device) {
  const auto is_device = [device](const char*, dev_t other) { return other == device; };
  const auto is_other_end = [&](const char* file, dev_t) { return is_master_of(process, file, minor(device)); };
  const bool pseudo = major(device) >= UNIX98_PTY_SLAVE_MAJOR && major(device) < UNIX98_PTY_SLAVE_MAJOR + 8;
  return has_open(processes, process, is_device) && !(pseudo && has_open(processes, process, is_other_end));
}

// Another process that uses the device.
std::optional<pid_t> user_of(dev_t device) {
  const auto processes = open_directory(AT_FDCWD, "/proc");
  while (const dirent* const entry = processes == nullptr ? nullptr : readdir(processes.get())) {
    const std::string pid = entry->d_name;
    if (is_number(pid) && pid != std::to_string(getpid()) && uses(processes.get(), pid, device)) {
      return static_cast<pid_t>(std::stol(pid));
    }
  }
  return std::nullopt;
}

// "process 123 (name)".
std::string name_of(pid_t process) {
  const std::string pid = std::to_string(process);
  std::string command;
  std::getline(std::ifstream("/proc/" + pid + "/comm"), command);
  return std::string("process ").append(pid).append(" (").append(command).append(")");
}

[[noreturn]] void refuse_busy(const std::string& path, const std::string& user, pid_t holder = 0) {
  throw PortError(PortError::Kind::busy, "the port " + path + " is in use by " + user + ": end it, or use another port",
                  holder);
}

int open_port(const std::string& path, const std::string& alternative) {
  // O_NONBLOCK: opening must not wait for a modem's carrier.
  const int fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0 && errno == EBUSY) {
    refuse_busy(path, "another process");
  }
  if (fd < 0) {
    throw PortError(PortError::Kind::unusable, open_failure_text(path, errno, alternative));
  }
  return fd;
}

void check_and_lock(int fd, const std::string& path, const std::string& alternative) {
  struct stat file {};
  if (isatty(fd) == 0 || fstat(fd, &file) != 0) {
    throw PortError(PortError::Kind::unusable, path + " is not a serial port: " + kHowToFind + alternative);
  }
  if (const auto user = user_of(file.st_rdev)) {
    refuse_busy(path, name_of(*user), *user);
  }
  // Two that start at the same moment: one of them gets the lock. Exclusive use does not keep root from opening.
  int exclusive = 0;
  if (flock(fd, LOCK_EX | LOCK_NB) != 0 || (ioctl(fd, TIOCGEXCL, &exclusive) == 0 && exclusive != 0)) {
    refuse_busy(path, "another process");
  }
}

}  // namespace

std::string open_failure_text(const std::string& path, int reason, const std::string& alternative) {
  if (reason == ENOENT || reason == ENOTDIR) {
    return "there is no port " + path + ": " + kHowToFind + alternative;
  }
  if (reason == EISDIR) {
    return path + " is not a serial port: " + kHowToFind + alternative;
  }
  std::string text = "the port " + path + " cannot be opened: " + std::strerror(reason);
  const bool no_permission = reason == EACCES || reason == EPERM;
  text += no_permission
              ? "; serial ports belong to the group dialout: `sudo usermod -aG dialout $USER`, then log in again"
              : "; is the reader plugged in?";
  return text;
}

PortGuard::PortGuard(const std::string& path, const std::string& alternative) : fd_(open_port(path, alternative)) {
  try {
    check_and_lock(fd_, path, alternative);
    make_raw(fd_);
    tcflush(fd_, TCIOFLUSH);
  } catch (...) {
    close(fd_);
    throw;
  }
}

// What an adapter that is being pulled out did not send any more would be waited for, half a minute by the kernel's
// rule.
PortGuard::~PortGuard() {
  tcflush(fd_, TCOFLUSH);
  close(fd_);
}

}  // namespace line
