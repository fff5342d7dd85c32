#include "line/port_guard.h"

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
#include <filesystem>
#include <fstream>
#include <optional>

#include "line/terminal.h"

namespace line {
namespace {

namespace fs = std::filesystem;

constexpr const char* kHowToFind = "list the ports with `ls /dev/serial/by-id`, or ";

bool is_number(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Whether the process, as its directory in /proc, has an open file that fits. Processes of other users cannot be looked
// into.
template <typename Predicate>
bool has_open(const fs::path& process, Predicate fits) {
  std::error_code failure;
  for (fs::directory_iterator entry(process / "fd", failure), end; !failure && entry != end; entry.increment(failure)) {
    struct stat file {};
    if (stat(entry->path().c_str(), &file) == 0 && S_ISCHR(file.st_mode) && fits(entry->path(), file.st_rdev)) {
      return true;
    }
  }
  return false;
}

// Whether the file is the master of the pseudo-terminal with that number: the kernel tells it of masters only.
bool is_master_of(const fs::path& file, unsigned int number) {
  std::ifstream lines(file.parent_path().parent_path() / "fdinfo" / file.filename());
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
bool uses(const fs::path& process, dev_t device) {
  const auto is_device = [device](const fs::path&, dev_t other) { return other == device; };
  const auto is_other_end = [device](const fs::path& file, dev_t) { return is_master_of(file, minor(device)); };
  const bool pseudo = major(device) >= UNIX98_PTY_SLAVE_MAJOR && major(device) < UNIX98_PTY_SLAVE_MAJOR + 8;
  return has_open(process, is_device) && !(pseudo && has_open(process, is_other_end));
}

// Another process that uses the device.
std::optional<pid_t> user_of(dev_t device) {
  std::error_code failure;
  for (fs::directory_iterator entry("/proc", failure), end; !failure && entry != end; entry.increment(failure)) {
    const std::string pid = entry->path().filename();
    if (is_number(pid) && pid != std::to_string(getpid()) && uses(entry->path(), device)) {
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

PortGuard::~PortGuard() { close(fd_); }

}  // namespace line
