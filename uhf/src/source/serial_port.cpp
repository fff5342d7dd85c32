#include "serial_port.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "ac/exception.h"

namespace ac::UHF {

namespace {

constexpr std::size_t CHUNK_SIZE = 1024;  // bytes, at most, of one system call

// A raw line: 8 data bits, receiver on, modem lines ignored, no translation, no flow control. With VMIN 0 a read
// returns once a byte is there, or after VTIME tenths of a second.
termios rawLine(const std::chrono::milliseconds& timeout) {
  termios line{};
  line.c_cflag = CS8 | CREAD | CLOCAL;
  line.c_cc[VMIN] = 0;
  line.c_cc[VTIME] = static_cast<cc_t>(timeout.count() / 100);
  cfsetspeed(&line, B115200);
  return line;
}

// The reason is that of the result, not of errno: what reads these texts knows them so.
[[noreturn]] void fail(const std::string& what, ssize_t result) {
  throw ac_exception(what + std::strerror(static_cast<int>(result)), true);
}

}  // namespace

SerialPort::SerialPort(const std::string& path, const std::chrono::milliseconds& timeout)
    : path_(path), timeout_(timeout) {
  fd_ = open(path_.c_str(), O_RDWR | O_SYNC);
  if (fd_ < 0) {
    throw ac_exception(std::string("Error opening Serial Port: ") + std::strerror(errno), true);
  }
  const termios line = rawLine(timeout_);
  tcsetattr(fd_, TCSANOW, &line);
}

SerialPort::~SerialPort() { close(fd_); }

void SerialPort::send(const std::vector<unsigned char>& data) const {
  for (std::size_t written = 0; written < data.size();) {
    const auto result = write(fd_, data.data() + written, std::min(CHUNK_SIZE, data.size() - written));
    if (result < 0) {
      fail("Error while writing to serial port: ", result);
    }
    written += static_cast<std::size_t>(result);
  }
}

std::pair<bool, std::vector<unsigned char>> SerialPort::receive() const {
  std::array<unsigned char, CHUNK_SIZE> buffer;
  const auto result = read(fd_, buffer.data(), buffer.size());
  if (result < 0) {
    fail("Error while reading from serial port: ", result);
  }
  std::vector<unsigned char> bytes(buffer.data(), buffer.data() + result);
  return {result > 0, std::move(bytes)};
}

}  // namespace ac::UHF
