#pragma once

#include <unistd.h>

#include <utility>

namespace uhfsim {

/// Owns a file descriptor and closes it once.
class Descriptor {
 public:
  Descriptor() = default;
  /// Takes the descriptor over; a negative one is none.
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }

  int get() const { return fd_; }

 private:
  int fd_ = -1;
};

}  // namespace uhfsim
