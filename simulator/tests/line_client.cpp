#include "line_client.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace uhfsim::testing {

namespace {

bool readable(int fd, int milliseconds) {
  pollfd awaited{fd, POLLIN, 0};
  return poll(&awaited, 1, milliseconds) == 1;
}

}  // namespace

LineClient::LineClient(const std::string& path, Setup setup) : line_(open(path.c_str(), O_RDWR | O_NOCTTY)) {
  EXPECT_GE(line_.get(), 0) << path;
  if (setup == Setup::untouched) return;
  termios settings{};
  settings.c_cflag = CS8 | CREAD | CLOCAL;
  settings.c_cc[VTIME] = 10;
  cfsetspeed(&settings, B115200);
  EXPECT_EQ(tcsetattr(line_.get(), TCSANOW, &settings), 0);
}

void LineClient::send(const Bytes& bytes) const {
  EXPECT_EQ(write(line_.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

Bytes LineClient::receive_some() const {
  if (!readable(line_.get(), 10'000)) return {};
  Bytes bytes(4096);
  const ssize_t count = read(line_.get(), bytes.data(), bytes.size());
  bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return bytes;
}

Bytes LineClient::receive(std::size_t count) const {
  Bytes received;
  while (received.size() < count) {
    const Bytes some = receive_some();
    if (some.empty()) break;
    received.insert(received.end(), some.begin(), some.end());
  }
  return received;
}

bool LineClient::hangs_up() const {
  pollfd awaited{line_.get(), 0, 0};
  return poll(&awaited, 1, 10'000) == 1 && (awaited.revents & POLLHUP) != 0;
}

bool LineClient::waiting() const { return readable(line_.get(), 0); }

}  // namespace uhfsim::testing
