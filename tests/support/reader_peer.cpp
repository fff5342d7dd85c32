#include "reader_peer.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <stdexcept>
#include <thread>

ReaderPeer::ReaderPeer() : master_(posix_openpt(O_RDWR | O_NOCTTY)) {
  std::array<char, 64> name{};
  if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0 ||
      ptsname_r(master_, name.data(), name.size()) != 0) {
    throw std::runtime_error("no pseudo-terminal");
  }
  path_ = name.data();
  slave_ = open(path_.c_str(), O_RDWR | O_NOCTTY);
  termios line{};
  tcgetattr(slave_, &line);
  cfmakeraw(&line);  // no echo of what is written before the driver configures the line
  tcsetattr(slave_, TCSANOW, &line);
}

ReaderPeer::~ReaderPeer() {
  hang_up();
  close(slave_);
}

void ReaderPeer::write(const std::vector<unsigned char>& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const auto result = ::write(master_, bytes.data() + done, bytes.size() - done);
    if (result < 0) {
      throw std::runtime_error("the peer cannot write");
    }
    done += static_cast<std::size_t>(result);
  }
}

bool ReaderPeer::wait_until_read() const {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (int waiting = 1; std::chrono::steady_clock::now() < deadline;) {
    // First of all, for the kernel hands bytes over a moment after they were written.
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (ioctl(slave_, FIONREAD, &waiting) == 0 && waiting == 0) {
      return true;
    }
  }
  return false;
}

std::vector<unsigned char> ReaderPeer::read(std::size_t count) {
  std::vector<unsigned char> bytes(count);
  std::size_t done = 0;
  for (pollfd ready{master_, POLLIN, 0}; done < count && poll(&ready, 1, 10'000) > 0;) {
    const auto result = ::read(master_, bytes.data() + done, count - done);
    if (result <= 0) {
      break;
    }
    done += static_cast<std::size_t>(result);
  }
  bytes.resize(done);
  return bytes;
}

bool ReaderPeer::is_quiet() const {
  pollfd ready{master_, POLLIN, 0};
  return poll(&ready, 1, 0) == 0;
}

void ReaderPeer::hang_up() {
  if (master_ >= 0) {
    close(master_);
    master_ = -1;
  }
}
