#include "frame.h"

#include <numeric>

namespace uhfsim {

namespace {

constexpr std::uint8_t kHeader = 0x7F;
constexpr std::uint8_t kEnd = 0x7E;
constexpr std::size_t kParametersAt = 5;

std::uint8_t low(std::size_t value) { return static_cast<std::uint8_t>(value & 0xFF); }

std::uint8_t checksum(ByteView bytes) { return low(std::accumulate(bytes.begin(), bytes.end(), std::size_t{0})); }

std::size_t announced_parameters(ByteView frame) { return static_cast<std::size_t>(frame[3] << 8 | frame[4]); }

}  // namespace

Bytes encode_frame(FrameType type, std::uint8_t code, ByteView parameters) {
  Bytes frame{kHeader, static_cast<std::uint8_t>(type), code, low(parameters.size() >> 8), low(parameters.size())};
  frame.reserve(parameters.size() + kFrameOverhead);
  frame.insert(frame.end(), parameters.begin(), parameters.end());
  frame.push_back(checksum(ByteView(frame).subspan(1)));
  frame.push_back(kEnd);
  return frame;
}

std::vector<std::span<std::uint8_t>> frames_of(std::span<std::uint8_t> bytes) {
  std::vector<std::span<std::uint8_t>> frames;
  while (bytes.size() >= kFrameOverhead) {
    const std::size_t size = announced_parameters(bytes) + kFrameOverhead;
    if (size > bytes.size()) break;
    frames.push_back(bytes.first(size));
    bytes = bytes.subspan(size);
  }
  return frames;
}

void mend_checksum(std::span<std::uint8_t> frame) {
  frame[frame.size() - 2] = checksum(frame.subspan(1, frame.size() - 3));
}

void CommandScanner::push(ByteView bytes) {
  compact();
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
}

void CommandScanner::clear() {
  buffer_.clear();
  start_ = 0;
}

std::optional<CommandFrame> CommandScanner::next() {
  for (;;) {
    const ByteView rest = ByteView(buffer_).subspan(start_);
    switch (look_at(rest)) {
      case Look::incomplete:
        return std::nullopt;
      case Look::junk:
        ++start_;
        ++skipped_;
        break;
      case Look::whole: {
        const ByteView parameters = rest.subspan(kParametersAt, announced_parameters(rest));
        start_ += parameters.size() + kFrameOverhead;
        return CommandFrame{rest[2], Bytes(parameters.begin(), parameters.end())};
      }
    }
  }
}

CommandScanner::Look CommandScanner::look_at(ByteView bytes) const {
  if (bytes.empty()) return Look::incomplete;
  if (bytes[0] != kHeader) return Look::junk;
  if (bytes.size() > 1 && bytes[1] != static_cast<std::uint8_t>(FrameType::command)) return Look::junk;
  if (bytes.size() < kParametersAt) return Look::incomplete;
  const std::size_t count = announced_parameters(bytes);
  if (count > kMaxParameters) return Look::junk;
  if (bytes.size() < count + kFrameOverhead) return Look::incomplete;
  const std::uint8_t sum = checksum(bytes.subspan(1, count + kParametersAt - 1));
  const bool valid = bytes[count + kFrameOverhead - 2] == sum && bytes[count + kFrameOverhead - 1] == kEnd;
  return valid ? Look::whole : Look::junk;
}

void CommandScanner::compact() {
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(start_));
  start_ = 0;
}

}  // namespace uhfsim
