// The frames of the reader's line, as somebody sees them who only looks on. Written for itself: a mistake that the
// plug-in made would be no mistake here.
//
//   7F  type  command  length (2, high byte first)  parameters  checksum  7E
//
// The checksum is the low byte of the sum of all between header and checksum. Nothing is escaped: 7E and 7F may stand
// anywhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "line/bytes.h"

namespace line {

enum class FrameType : std::uint8_t { command = 0, response = 1, notice = 2 };

inline constexpr std::uint8_t kFrameEnd = 0x7E;  // the last byte of a frame; it may stand within one, too

enum class Code : std::uint8_t {
  set_region = 0x07,
  inventory = 0x22,
  set_channels = 0xA9,
  set_power = 0xB6,
  get_power = 0xB7,
  set_sensitivity = 0xF0,
  get_sensitivity = 0xF1,
  failure = 0xFF,  // of a response: to an inventory, nothing was read
};

// A frame with a right checksum, as a look at somebody else's bytes.
struct Frame {
  FrameType type = FrameType::command;
  Code code = Code::failure;
  ByteView parameters;
  std::size_t offset = 0;  // of its header
  std::size_t size = 0;    // bytes, with header and end
};

// Why bytes are no frame.
enum class Flaw {
  junk,            // no header, or one that begins no frame that there is
  wrong_checksum,  // a whole frame but for that
  wrong_end,       // no 7E where it should stand
  truncated,       // they end within a frame
};

// "junk", "a wrong checksum": for a person.
const char* name_of(Flaw flaw);

// Bytes between frames.
struct Gap {
  std::size_t offset = 0;
  std::size_t size = 0;
  Flaw flaw = Flaw::junk;  // of its first header; junk without one
};

struct Pieces {
  std::vector<Frame> frames;
  std::vector<Gap> gaps;
};

// Every frame in the bytes, from the left, and what stands between them. A header that begins no frame hides none
// behind it. Time is linear in the number of bytes.
Pieces pieces_of(ByteView bytes);

// A frame to send.
Bytes frame_of(FrameType type, Code code, ByteView parameters);

// A tag report's: those of a good frame with type notice.
struct Tag {
  ByteView epc;  // of the frame
  int rssi = 0;  // as the reader says it, 0 to 255
};
Tag tag_of(const Frame& notice);

// The 16 bits of a power, high byte first. Hundredths of a dBm.
int power_of(ByteView parameters);

// "21.00 dBm".
std::string power_text(int power);

}  // namespace line
