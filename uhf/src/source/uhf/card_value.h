// From a tag's EPC to the number by which the device knows the card.
#pragma once

#include <cstdint>
#include <vector>

// Takes n = "identification_bits" / 8 bytes, rounded up, as a big-endian number: the EPC's first n when "reader_type"
// is "lsb" (in any case), otherwise its last n; of a shorter EPC all it has. More than 8 bytes: the last 8 of them. A
// value of 3 bytes is split: its high byte becomes bits 32 to 39. No bits or no EPC: 0. Both settings are read afresh.
std::uint64_t toCardValue(const std::vector<unsigned char>& epc);
