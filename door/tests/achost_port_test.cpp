// The serial port of achost run.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <SQLiteCpp/SQLiteCpp.h>
#include <filesystem>
#include <fstream>

#include "door/tests/run_fixture.h"

namespace achost::test {
namespace {

constexpr const char* kHowToFind = ": list the ports with `ls /dev/serial/by-id`, or try --simulate";

// A serial line with nobody at our end.
class Line {
 public:
  Line() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    EXPECT_TRUE(master_ >= 0 && grantpt(master_) == 0 && unlockpt(master_) == 0);
    path_ = ptsname(master_);
  }
  ~Line() { close(master_); }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  const std::string& path() const { return path_; }

 private:
  int master_;
  std::string path_;
};

TEST_F(AchostRun, PortThatDoesNotExistIsRefused) {
  expect_refused(run("good", {"--port", "/dev/ttyNOSUCH0"}), 3,
                 std::string("there is no port /dev/ttyNOSUCH0") + kHowToFind);
}

TEST_F(AchostRun, PortOfTheSettingsIsCheckedToo) {
  expect_refused(run("good", {"--set", "serial_port_path=/dev/ttyNOSUCH1"}), 3,
                 std::string("there is no port /dev/ttyNOSUCH1") + kHowToFind);
}

// They tell the port before anything else is opened.
TEST_F(AchostRun, SettingsThatOnlyTheirOwnerCanReadTellThePortToo) {
  const std::string settings = state() + "/settings.db";
  const auto store = [&] { achost({"config", "set", "serial_port_path", "/dev/ttyNOSUCH2", "--state", state()}); };
  std::filesystem::create_directories(state());
  store();
  SQLite::Database(settings, SQLite::OPEN_READWRITE)
      .exec("ALTER TABLE settings DROP COLUMN sum; PRAGMA user_version = 1");
  EXPECT_THAT(achost(run("good")).err, testing::HasSubstr("there is no port /dev/ttyNOSUCH2"))
      << "of an earlier version";
  std::ofstream(settings) << std::string(5000, 'x');
  EXPECT_THAT(achost(run("good")).err, testing::HasSubstr("there is no port /dev/ttyNOSUCH2")) << "of the good copy";
}

TEST_F(AchostRun, WhatIsNoSerialPortIsRefused) {
  expect_refused(run("good", {"--port", "/dev/null"}), 3, std::string("/dev/null is not a serial port") + kHowToFind);
  expect_refused(run("good", {"--port", "/etc/passwd"}), 3,
                 std::string("/etc/passwd is not a serial port") + kHowToFind);
  expect_refused(run("good", {"--port", "/tmp"}), 3, std::string("/tmp is not a serial port") + kHowToFind);
}

// A process that has the device open and nothing else, until it is killed.
class Holder {
 public:
  explicit Holder(const std::string& path) {
    int ready[2];
    EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
    pid_ = fork();
    if (pid_ == 0) {
      close_range(3, static_cast<unsigned>(ready[1]) - 1, 0);
      open(path.c_str(), O_RDWR | O_NOCTTY);
      [[maybe_unused]] const auto written = write(ready[1], "", 1);
      for (;;) {
        pause();
      }
    }
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    close(ready[0]);
    close(ready[1]);
  }
  ~Holder() {
    if (pid_ > 0) {  // -1 would be every process there is
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

  pid_t pid() const { return pid_; }

 private:
  pid_t pid_;
};

TEST_F(AchostRun, PortThatAnotherProcessHasOpenIsRefusedWithItsPidAndName) {
  const Line line;
  const Holder holder(line.path());
  expect_refused(run("good", {"--port", line.path()}), 5,
                 "the port " + line.path() + " is in use by process " + std::to_string(holder.pid()) +
                     " (door_achost_tes): end it, or use another port");
}

TEST_F(AchostRun, ReaderAtTheOtherEndMayKeepThisEndOpenToo) {
  const Line line;
  const int fd = open(line.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  const auto result = achost(run("good", {"--port", line.path(), "--seconds", "0.2"}));
  EXPECT_EQ(result.status, 0) << result.err;
  close(fd);
}

TEST_F(AchostRun, PortInExclusiveUseIsRefused) {
  const Line line;
  const int fd = open(line.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_EQ(ioctl(fd, TIOCEXCL), 0);
  expect_refused(run("good", {"--port", line.path()}), 5,
                 "the port " + line.path() + " is in use by another process: end it, or use another port");
  close(fd);
}

TEST_F(AchostRun, TwoHostsExcludeEachOtherFromAPort) {
  const Line line;
  Achost first(run("good", {"--port", line.path()}));
  EXPECT_NE(first.next_line(), "");
  const TemporaryDirectory other;
  const auto second =
      achost({"run", "--plugin", plugin("good"), "--state", other.path() / "state", "--port", line.path()});
  EXPECT_EQ(second.status, 5);
  EXPECT_EQ(second.err, "achost: the port " + line.path() + " is in use by process " + std::to_string(first.pid()) +
                            " (achost): end it, or use another port\n");
}

TEST_F(AchostRun, PortOfTheCommandLineIsNamedInTheStartLine) {
  const Line line;
  const auto result = achost(run("good", {"--port", line.path(), "--seconds", "0.2"}));
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.err.find("reads at " + line.path() + "; Ctrl-C ends"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace achost::test
