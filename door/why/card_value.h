// From a tag's EPC to the number by which the device knows the card; a second opinion, not the plug-in's own code.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace achost::why {

using Card = std::uint64_t;

// identification_bits, reader_type: the settings of those names, as they are stored when the tag is read.
Card card_value(std::span<const std::uint8_t> epc, int identification_bits, std::string_view reader_type);

}  // namespace achost::why
