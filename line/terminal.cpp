#include "line/terminal.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace line {
namespace {

int checked(int result, const char* what) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
  return result;
}

Descriptor open_master() {
  Descriptor master(checked(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), "opening a pseudo-terminal"));
  checked(grantpt(master.get()), "granting the pseudo-terminal");
  checked(unlockpt(master.get()), "unlocking the pseudo-terminal");
  return master;
}

std::string client_path(int master) {
  std::array<char, 128> path{};
  if (const int error = ptsname_r(master, path.data(), path.size()); error != 0) {
    throw std::system_error(error, std::generic_category(), "naming the pseudo-terminal");
  }
  return path.data();
}

}  // namespace

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

Descriptor::~Descriptor() {
  if (fd_ >= 0) {
    close(fd_);
  }
}

Terminal::Terminal()
    : master_(open_master()),
      path_(client_path(master_.get())),
      client_(checked(open(path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), "opening the pseudo-terminal")) {
  make_raw(client_.get());
}

void Terminal::control() const { checked(ioctl(client_.get(), TIOCSCTTY, 0), "taking a controlling terminal"); }

std::size_t Terminal::drop_unread() const {
  // By reading: a flush drops the first 4 KiB alone, and what waits behind them takes their place.
  std::array<char, 4096> buffer;
  std::size_t dropped = 0;
  for (ssize_t count; (count = read(client_.get(), buffer.data(), buffer.size())) > 0;) {
    dropped += static_cast<std::size_t>(count);
  }
  return dropped;
}

std::unique_ptr<Terminal> controlling_terminal() {
  const bool has_one = Descriptor(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)).get() >= 0;
  if (has_one || getsid(0) != getpid()) {
    return nullptr;
  }
  try {
    auto terminal = std::make_unique<Terminal>();
    terminal->control();
    return terminal;
  } catch (const std::system_error&) {
    return nullptr;
  }
}

void make_raw(int fd) {
  termios settings{};
  settings.c_cflag = CS8 | CREAD | CLOCAL;
  settings.c_cc[VMIN] = 1;
  cfsetspeed(&settings, B115200);
  tcsetattr(fd, TCSANOW, &settings);
}

}  // namespace line
