#include "line/port_guard.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace line
