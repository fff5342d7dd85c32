// From a tag's EPC to the number by which the device knows the card.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

// Takes n = bits / 8 bytes, rounded up, as a big-endian number: the EPC's first n when fromFront, otherwise its last n;
// of a shorter EPC all it has. More than 8 bytes: the last 8 of them. A value of 3 bytes is split: its high byte
// becomes bits 32 to 39. No bits (0 or fewer) or no EPC: 0.
inline std::uint64_t cardValueOf(const std::vector<unsigned char>& epc, int bits, bool fromFront) {
  const int positive = std::max(bits, 0);
  const auto count = static_cast<std::size_t>(positive / 8 + (positive % 8 != 0));
  const auto taken = std::min(count, epc.size());
  const std::span bytes(epc);
  std::uint64_t value = 0;
  for (const unsigned char byte : fromFront ? bytes.first(taken) : bytes.last(taken)) {
    value = value << 8 | byte;
  }
  // By the bytes that are wanted, also when the EPC has fewer.
  return count == 3 ? (value & 0xFFFF) | (value >> 16 & 0xFF) << 32 : value;
}

// The same with the settings "identification_bits" and "reader_type" ("lsb", in any case, is from the front), both read
// afresh, and a debug line with the value. Any thread; no lock. Throws what the host's configuration throws.
std::uint64_t toCardValue(const std::vector<unsigned char>& epc);

// line: memory for the debug line, for a caller with many tags.
std::uint64_t toCardValue(const std::vector<unsigned char>& epc, std::string& line);
