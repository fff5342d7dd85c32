#pragma once

#include <cstdint>

#include "uhfsim/bytes.h"

namespace uhfsim {

/// The CRC-16 that a Gen2 tag backscatters after its PC and EPC: polynomial 0x1021, preset 0xFFFF, high bit first,
/// complemented at the end.
constexpr std::uint16_t crc16(ByteView bytes) {
  unsigned crc = 0xFFFF;
  for (const unsigned byte : bytes) {
    crc ^= byte << 8;
    for (int bit = 0; bit < 8; ++bit) crc = ((crc << 1) ^ ((crc & 0x8000) != 0 ? 0x1021U : 0U)) & 0xFFFF;
  }
  return static_cast<std::uint16_t>(~crc);
}

}  // namespace uhfsim
