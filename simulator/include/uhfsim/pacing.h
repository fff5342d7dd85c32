#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

namespace uhfsim {

/// The clock of everything that takes time in the simulator.
using Clock = std::chrono::steady_clock;

/// When bytes are through a serial line of 8 data bits, no parity and one stop bit: ten bits a byte, 86.8 us at
/// 115200 baud. Pure arithmetic, no clock is read.
class LinePacing {
 public:
  /// Bits per second; 0 is a line that takes no time.
  explicit LinePacing(unsigned baud) : baud_(baud) {}

  /// Whether the line takes time at all.
  bool paced() const { return baud_ != 0; }

  /// How long so many bytes take, rounded down to a nanosecond; the error does not add up over the bytes.
  std::chrono::nanoseconds duration(std::size_t bytes) const;

  /// When the last of so many bytes is through, if the first begins at start.
  Clock::time_point due(Clock::time_point start, std::size_t bytes) const { return start + duration(bytes); }

 private:
  unsigned baud_;
};

/// A part of a reply and the instant at which the client may see it.
struct Piece {
  std::size_t offset;  // of its first byte in the reply
  std::size_t size;
  Clock::time_point due;

  bool operator==(const Piece&) const = default;
};

/// How a reply is handed to the client.
class Chunking {
 public:
  /// Bytes per chunk; 0 hands over each reply whole, as a serial adapter does that gathers bytes.
  explicit Chunking(std::size_t size) : size_(size) {}

  /// The pieces of a reply of this many bytes whose first byte begins at start: each is due when its last byte is
  /// through the line. None for an empty reply.
  std::vector<Piece> pieces(std::size_t bytes, Clock::time_point start, const LinePacing& pacing) const;

 private:
  std::size_t size_;
};

}  // namespace uhfsim
