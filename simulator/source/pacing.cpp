#include "uhfsim/pacing.h"

#include <algorithm>
#include <cstdint>

namespace uhfsim {

std::chrono::nanoseconds LinePacing::duration(std::size_t bytes) const {
  constexpr std::int64_t kBitsPerByte = 10;
  constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
  if (!paced()) return std::chrono::nanoseconds::zero();
  return std::chrono::nanoseconds(static_cast<std::int64_t>(bytes) * kBitsPerByte * kNanosecondsPerSecond / baud_);
}

std::vector<Piece> Chunking::pieces(std::size_t bytes, Clock::time_point start, const LinePacing& pacing) const {
  const std::size_t most = size_ == 0 ? bytes : size_;
  std::vector<Piece> pieces;
  for (std::size_t offset = 0; offset < bytes;) {
    const std::size_t size = std::min(most, bytes - offset);
    pieces.push_back({offset, size, pacing.due(start, offset + size)});
    offset += size;
  }
  return pieces;
}

}  // namespace uhfsim
