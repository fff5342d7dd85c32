#include "uhfsim/pty_link.h"

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include "system_error.h"

namespace uhfsim {

namespace {

Descriptor open_master() {
  Descriptor master(checked(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), "opening a pseudo-terminal"));
  checked(grantpt(master.get()), "granting the pseudo-terminal");
  checked(unlockpt(master.get()), "unlocking the pseudo-terminal");
  return master;
}

std::string slave_path(int master) {
  char path[128];
  const int error = ptsname_r(master, path, sizeof(path));
  if (error != 0) throw std::system_error(error, std::generic_category(), "naming the pseudo-terminal");
  return path;
}

Descriptor open_raw_slave(const std::string& path) {
  Descriptor slave(checked(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), "opening the pseudo-terminal's slave"));
  termios settings{};
  checked(tcgetattr(slave.get(), &settings), "reading the pseudo-terminal's settings");
  cfmakeraw(&settings);
  checked(tcsetattr(slave.get(), TCSANOW, &settings), "making the pseudo-terminal raw");
  return slave;
}

}  // namespace

PtyLink::PtyLink() : master_(open_master()), path_(slave_path(master_.get())) { slave_ = open_raw_slave(path_); }

Bytes PtyLink::read() {
  Bytes bytes(4096);
  const auto count = checked_or_nothing(::read(fd(), bytes.data(), bytes.size()), "reading from the pseudo-terminal");
  bytes.resize(static_cast<std::size_t>(count));
  return bytes;
}

std::size_t PtyLink::write(ByteView bytes) {
  const auto count = checked_or_nothing(::write(fd(), bytes.data(), bytes.size()), "writing to the pseudo-terminal");
  return static_cast<std::size_t>(count);
}

}  // namespace uhfsim
