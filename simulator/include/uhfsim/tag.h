#pragma once

#include <cstddef>
#include <cstdint>

#include "uhfsim/bytes.h"

namespace uhfsim {

/// The longest EPC that a protocol-control word can announce: 31 words of 16 bits.
inline constexpr std::size_t kMaxEpcBytes = 62;

/// The protocol-control word of a tag that has nothing but an EPC: the number of 16-bit words in its upper five bits
/// (12 bytes give 0x3000).
constexpr std::uint16_t pc_for_epc(ByteView epc) { return static_cast<std::uint16_t>((epc.size() / 2) << 11); }

/// A tag as the reader sees it.
struct Tag {
  /// What identifies the tag; at most kMaxEpcBytes.
  Bytes epc{};
  /// Received signal strength as the notice carries it, 0 to 255.
  std::uint8_t rssi = 200;
  /// Protocol-control word; fits the EPC unless given. A tag whose EPC is assigned later needs its PC assigned too.
  std::uint16_t pc = pc_for_epc(epc);
  /// Probability of being read in one inventory round, 0.0 to 1.0.
  double probability = 1.0;
  /// The least transmit power, as it stands on the wire, at which the tag answers: the farther away, the more.
  std::uint16_t least_power = 0;

  bool operator==(const Tag&) const = default;
};

}  // namespace uhfsim
