// Bytes on their way to a descriptor that may not take them all at once.
#pragma once

#include <cstddef>

#include "line/bytes.h"

namespace line {

// One thread uses it.
class Outbox {
 public:
  explicit Outbox(std::size_t bound) : bound_(bound) {}

  // Write them behind what waits. What neither goes nor may wait is dropped; returns the number of those bytes. Throws
  // std::system_error when the descriptor fails.
  std::size_t send(int fd, ByteView bytes);

  // Go on once the descriptor takes bytes again.
  void go_on(int fd) { send(fd, {}); }

  bool is_waiting() const { return !waiting_.empty(); }

  // Drops what waits; the number of bytes.
  std::size_t clear();

 private:
  const std::size_t bound_;  // bytes that may wait
  Bytes waiting_;
};

}  // namespace line
