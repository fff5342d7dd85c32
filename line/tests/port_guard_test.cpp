#include "line/port_guard.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace line {
namespace {

TEST(PortGuard, MissingPortSaysHowToFindOne) {
  EXPECT_EQ(open_failure_text("/dev/p", ENOENT, "try --simulate"),
            "there is no port /dev/p: list the ports with `ls /dev/serial/by-id`, or try --simulate");
}

TEST(PortGuard, MissingPermissionNamesTheGroup) {
  EXPECT_EQ(open_failure_text("/dev/p", EACCES, ""),
            "the port /dev/p cannot be opened: Permission denied; serial ports belong to the group dialout: "
            "`sudo usermod -aG dialout $USER`, then log in again");
}

TEST(PortGuard, DeviceThatIsGoneAsksForTheReader) {
  EXPECT_EQ(open_failure_text("/dev/p", ENXIO, ""),
            "the port /dev/p cannot be opened: No such device or address; is the reader plugged in?");
}

TEST(PortGuard, DirectoryIsNoPort) {
  EXPECT_EQ(open_failure_text("/dev", EISDIR, "try --simulate"),
            "/dev is not a serial port: list the ports with `ls /dev/serial/by-id`, or try --simulate");
}

// Whether the port has a byte to read within a second, or at once.
bool has_bytes(int port, int milliseconds) {
  pollfd awaited{port, POLLIN, 0};
  return poll(&awaited, 1, milliseconds) == 1;
}

TEST(PortGuard, WhatWaitsInThePortIsDropped) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_TRUE(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0);
  const std::string path = ptsname(master);
  // Held by this process, as the bytes would go with the last end.
  const int port = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios raw{};
  cfmakeraw(&raw);
  tcsetattr(port, TCSANOW, &raw);
  ASSERT_EQ(write(master, "stale", 5), 5);
  ASSERT_TRUE(has_bytes(port, 1000));
  const PortGuard guard(path, "");
  EXPECT_FALSE(has_bytes(port, 0));
  ASSERT_EQ(write(master, "fresh", 5), 5);
  EXPECT_TRUE(has_bytes(port, 1000)) << "only what was there before is dropped";
  close(port);
  close(master);
}

}  // namespace
}  // namespace line
