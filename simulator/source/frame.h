#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "uhfsim/bytes.h"

/// The module's own idea of a frame: header 0x7F, type, command code, parameter length (2 bytes, high first),
/// parameters, checksum (low byte of the sum of all from the type to the last parameter), end 0x7E. No escaping.
namespace uhfsim {

enum class FrameType : std::uint8_t { command = 0x00, response = 0x01, notice = 0x02 };

/// The wire bytes of one frame. At most 65535 parameters.
Bytes encode_frame(FrameType type, std::uint8_t code, ByteView parameters);

/// Bytes of a frame without parameters.
inline constexpr std::size_t kFrameOverhead = 7;

/// The bytes of each of the frames that follow one another in what the module itself has made; up to the first that
/// does not fit.
std::vector<std::span<std::uint8_t>> frames_of(std::span<std::uint8_t> bytes);

/// Makes the checksum of a whole frame fit its bytes.
void mend_checksum(std::span<std::uint8_t> frame);

/// A whole command with a right checksum, as it came from the line.
struct CommandFrame {
  std::uint8_t code;
  Bytes parameters;
};

/// Finds commands in a stream of bytes. What cannot be a command is skipped byte by byte, so that a good frame behind
/// or inside a broken one is still found; an incomplete one waits for the rest. Not thread-safe.
class CommandScanner {
 public:
  /// The longest parameter list that the module takes. A header that announces more is taken for junk; otherwise a
  /// stray 0x7F could keep the module deaf for 64 KB.
  static constexpr std::size_t kMaxParameters = 512;

  /// Appends received bytes.
  void push(ByteView bytes);

  /// The next whole command, or nothing when more bytes are needed.
  std::optional<CommandFrame> next();

  /// Drops what is incomplete.
  void clear();

  /// Bytes skipped so far because they belong to no valid command.
  std::uint64_t skipped() const { return skipped_; }

 private:
  enum class Look { incomplete, junk, whole };
  Look look_at(ByteView bytes) const;
  void compact();

  Bytes buffer_;
  std::size_t start_ = 0;  // what lies before it in buffer_ is done with
  std::uint64_t skipped_ = 0;
};

}  // namespace uhfsim
