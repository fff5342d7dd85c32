#include "uhfsim/pty_link.h"

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

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

Descriptor open_slave(const std::string& path) {
  return Descriptor(checked(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC),  //
                            "opening the pseudo-terminal's slave"));
}

Descriptor open_raw_slave(const std::string& path) {
  Descriptor slave = open_slave(path);
  termios settings{};
  checked(tcgetattr(slave.get(), &settings), "reading the pseudo-terminal's settings");
  cfmakeraw(&settings);
  checked(tcsetattr(slave.get(), TCSANOW, &settings), "making the pseudo-terminal raw");
  return slave;
}

// Reading brings up what is still between the two ends, which flushing alone would miss.
void drop_unread(int slave) {
  char dropped[4096];
  tcflush(slave, TCIFLUSH);
  while (::read(slave, dropped, sizeof(dropped)) > 0) {
  }
}

}  // namespace

PtyLink::PtyLink() : master_(open_master()), path_(slave_path(master_.get())) { slave_ = open_raw_slave(path_); }

void PtyLink::hold() {
  slave_ = open_slave(path_);
  drop_unread(slave_.get());
}

// Whatever is unread now was for somebody before: who has just spoken has no answer yet.
void PtyLink::let_go() {
  drop_unread(slave_.get());
  slave_ = Descriptor();
}

Bytes PtyLink::read() {
  Bytes bytes(4096);
  const auto result = ::read(fd(), bytes.data(), bytes.size());
  const bool closed = result < 0 && errno == EIO;
  const auto count = closed ? 0 : checked_or_nothing(result, "reading from the pseudo-terminal");
  if (closed && attended()) hold();
  if (count > 0 && !attended()) let_go();
  bytes.resize(static_cast<std::size_t>(count));
  return bytes;
}

std::size_t PtyLink::write(ByteView bytes) {
  if (!attended()) return bytes.size();
  const auto count = checked_or_nothing(::write(fd(), bytes.data(), bytes.size()), "writing to the pseudo-terminal");
  return static_cast<std::size_t>(count);
}

}  // namespace uhfsim
