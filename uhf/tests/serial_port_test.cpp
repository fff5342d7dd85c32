// The serial line: what it asks of the system, and what it does with the answers.
#include "serial_port.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <deque>
#include <fstream>
#include <thread>

#include "failure.h"
#include "hex.h"
#include "reader_peer.h"

using ac::UHF::SerialPort;
using std::chrono::milliseconds;
using testing::ElementsAre;

namespace {

// What the port asked of the system, and results to give in place of the system's own.
struct System {
  std::vector<int> openFlags;
  std::vector<termios> lines;
  std::vector<int> closed;
  std::vector<std::size_t> writeSizes;
  std::vector<unsigned char> given;  // the bytes of all writes, those included that were not taken
  std::vector<std::size_t> readSizes;
  std::deque<ssize_t> writeResults;  // a negative one sets errno to EINTR
  std::deque<ssize_t> readResults;
  int lineResult = 0;
} sys;

}  // namespace

// The linker sends the port's calls here (--wrap), and those of the __real_ names to the system.
extern "C" {
int __real_open(const char* path, int flags, ...);
int __real_tcsetattr(int fd, int actions, const termios* line);
int __real_close(int fd);
ssize_t __real_write(int fd, const void* data, std::size_t size);
ssize_t __real_read(int fd, void* data, std::size_t size);

int __wrap_open(const char* path, int flags, ...) {
  sys.openFlags.push_back(flags);
  return __real_open(path, flags);
}
int __wrap_tcsetattr(int fd, int actions, const termios* line) {
  sys.lines.push_back(*line);
  EXPECT_EQ(actions, TCSANOW);
  return sys.lineResult != 0 ? sys.lineResult : __real_tcsetattr(fd, actions, line);
}
int __wrap_close(int fd) {
  sys.closed.push_back(fd);
  return __real_close(fd);
}
static ssize_t next(std::deque<ssize_t>& results) {
  const auto result = results.front();
  results.pop_front();
  errno = EINTR;
  return result;
}
ssize_t __wrap_write(int fd, const void* data, std::size_t size) {
  sys.writeSizes.push_back(size);
  const auto* const bytes = static_cast<const unsigned char*>(data);
  sys.given.insert(sys.given.end(), bytes, bytes + size);
  return sys.writeResults.empty() ? __real_write(fd, data, size) : next(sys.writeResults);
}
ssize_t __wrap_read(int fd, void* data, std::size_t size) {
  sys.readSizes.push_back(size);
  return sys.readResults.empty() ? __real_read(fd, data, size) : next(sys.readResults);
}
}

namespace {

class SerialPortTest : public testing::Test {
 protected:
  void SetUp() override { sys = {}; }

  // So many bytes, none like its neighbours or like the one 1024 before it.
  static std::vector<unsigned char> pattern(std::size_t size) {
    std::vector<unsigned char> bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
      bytes[i] = static_cast<unsigned char>(i * 7 + i / 256);
    }
    return bytes;
  }

  // The line settings for a time-out.
  termios lineFor(milliseconds timeout) {
    const SerialPort port("/dev/null", timeout);
    return sys.lines.back();
  }

  ReaderPeer peer;
};

using Open = SerialPortTest;
using Send = SerialPortTest;
using Receive = SerialPortTest;

}  // namespace

TEST_F(Open, AsksForReadingWritingAndSynchronousWritesOnly) {
  const SerialPort port(peer.path(), milliseconds(1000));
  EXPECT_THAT(sys.openFlags, ElementsAre(O_RDWR | O_SYNC));
}

TEST_F(Open, ConfiguresARawLineFromNothing) {
  const auto line = lineFor(milliseconds(1000));
  EXPECT_EQ(line.c_iflag, 0U);
  EXPECT_EQ(line.c_oflag, 0U);
  EXPECT_EQ(line.c_lflag, 0U);
  EXPECT_EQ(line.c_cflag & ~static_cast<tcflag_t>(CBAUD | CIBAUD), static_cast<tcflag_t>(CS8 | CREAD | CLOCAL));
  EXPECT_EQ(line.c_line, 0);
  EXPECT_EQ(cfgetispeed(&line), static_cast<speed_t>(B115200));
  EXPECT_EQ(cfgetospeed(&line), static_cast<speed_t>(B115200));
  for (int i = 0; i < NCCS; ++i) {
    EXPECT_EQ(line.c_cc[i], i == VTIME ? 10 : 0) << i;
  }
  EXPECT_EQ(sys.lines.size(), 1U);
}

TEST_F(Open, TheTimeoutCountsInTenthsOfASecondCutToEightBits) {
  const std::vector<std::pair<int, int>> expected{{0, 0},     {99, 0},     {100, 1},     {150, 1},
                                                  {199, 1},   {1000, 10},  {25500, 255}, {25599, 255},
                                                  {25600, 0}, {30000, 44}, {51200, 0}};
  for (const auto& [timeout, tenths] : expected) {
    EXPECT_EQ(lineFor(milliseconds(timeout)).c_cc[VTIME], tenths) << timeout;
  }
}

TEST_F(Open, OfAMissingDeviceNamesTheReason) {
  const auto reason = failure_of([] { SerialPort("/dev/no such device", milliseconds(100)); });
  EXPECT_EQ(reason, "Error opening Serial Port: No such file or directory");
  EXPECT_THAT(sys.closed, ElementsAre());
}

TEST_F(Open, IgnoresALineThatCannotBeConfigured) {
  sys.lineResult = -1;
  EXPECT_EQ(failure_of([] { SerialPort("/dev/null", milliseconds(100)); }), "");
}

TEST_F(Open, LastsUntilTheDestruction) {
  {
    const SerialPort port("/dev/null", milliseconds(100));
    EXPECT_THAT(sys.closed, ElementsAre());
  }
  EXPECT_EQ(sys.closed.size(), 1U);
}

TEST_F(Send, DeliversEveryByteAsItIs) {
  const SerialPort port(peer.path(), milliseconds(1000));
  std::vector<unsigned char> all;
  for (int byte = 0; byte <= 0xFF; ++byte) {
    all.push_back(static_cast<unsigned char>(byte));
  }
  port.send(all);
  EXPECT_EQ(peer.read(all.size()), all);
}

TEST_F(Send, OfNothingMakesNoCall) {
  SerialPort(peer.path(), milliseconds(1000)).send({});
  EXPECT_THAT(sys.writeSizes, ElementsAre());
}

TEST_F(Send, WritesAtMost1024BytesAtATime) {
  const SerialPort port(peer.path(), milliseconds(1000));
  const auto data = pattern(2500);
  port.send(data);
  EXPECT_THAT(sys.writeSizes, ElementsAre(1024, 1024, 452));
  EXPECT_EQ(peer.read(data.size()), data);
}

TEST_F(Send, GoesOnAfterAPartialWriteAndAfterNone) {
  sys.writeResults = {1000, 0, 0, 24, 1024, 452};
  const auto data = pattern(2500);
  SerialPort("/dev/null", milliseconds(1000)).send(data);
  EXPECT_THAT(sys.writeSizes, ElementsAre(1024, 1024, 1024, 1024, 1024, 452));
  std::vector<unsigned char> expected;
  for (const std::ptrdiff_t start : {0, 1000, 1000, 1000, 1024, 2048}) {  // each goes on behind what was taken
    const auto end = std::min<std::ptrdiff_t>(start + 1024, std::ssize(data));
    expected.insert(expected.end(), data.begin() + start, data.begin() + end);
  }
  EXPECT_EQ(sys.given, expected);
}

TEST_F(Send, ReportsAFailureByTheResultNotByErrno) {
  sys.writeResults = {-1};
  const SerialPort port("/dev/null", milliseconds(1000));
  EXPECT_EQ(failure_of([&] { port.send(hex("01")); }), "Error while writing to serial port: Unknown error -1");
  EXPECT_EQ(sys.writeSizes.size(), 1U) << "an interrupted write is not retried";
  EXPECT_EQ(failure_of([&] { port.send(hex("01")); }), "") << "the port stays usable";
}

TEST_F(Receive, DeliversTheBytesThatAreThere) {
  const SerialPort port(peer.path(), milliseconds(1000));
  peer.write(hex("7F 0D 0A 11 13 03 04 00 FF"));
  const auto [received, bytes] = port.receive();
  EXPECT_TRUE(received);
  EXPECT_EQ(bytes, hex("7F 0D 0A 11 13 03 04 00 FF"));
  EXPECT_EQ(bytes.capacity(), bytes.size());
  EXPECT_THAT(sys.readSizes, ElementsAre(1024));
}

TEST_F(Receive, WaitsForTheFirstByte) {
  const SerialPort port(peer.path(), milliseconds(25500));
  std::thread writer([this] { peer.write(hex("42")); });
  EXPECT_EQ(port.receive().second, hex("42"));
  writer.join();
}

TEST_F(Receive, GivesUpAfterTheTimeout) {
  const SerialPort port(peer.path(), milliseconds(200));
  const auto start = std::chrono::steady_clock::now();
  const auto [received, bytes] = port.receive();
  EXPECT_FALSE(received);
  EXPECT_TRUE(bytes.empty());
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(190));
}

TEST_F(Receive, DoesNotWaitWithATimeoutBelowATenth) {
  const SerialPort port(peer.path(), milliseconds(99));
  EXPECT_FALSE(port.receive().first);
}

TEST_F(Receive, DeliversMoreThan1024BytesInSeveralCalls) {
  const SerialPort port(peer.path(), milliseconds(1000));
  const auto data = pattern(1500);
  peer.write(data);
  std::vector<unsigned char> all;
  while (all.size() < data.size()) {
    const auto [received, bytes] = port.receive();
    ASSERT_TRUE(received);
    ASSERT_LE(bytes.size(), 1024U);
    all.insert(all.end(), bytes.begin(), bytes.end());
  }
  EXPECT_EQ(all, data);
  EXPECT_GE(sys.readSizes.size(), 2U);
}

TEST_F(Receive, ReportsAFailureByTheResultNotByErrno) {
  sys.readResults = {-1};
  const SerialPort port("/dev/null", milliseconds(1000));
  EXPECT_EQ(failure_of([&] { port.receive(); }), "Error while reading from serial port: Unknown error -1");
}
