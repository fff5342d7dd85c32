#include "door/why/card_value.h"

#include <algorithm>

namespace achost::why {

namespace {

constexpr std::string_view kFromTheFront = "lsb";  // in any case; every other word takes the EPC's end

bool is_from_the_front(std::string_view reader_type) {
  return std::ranges::equal(reader_type, kFromTheFront,
                            [](char given, char wanted) { return given == wanted || given == wanted - 'a' + 'A'; });
}

}  // namespace

Card card_value(std::span<const std::uint8_t> epc, int identification_bits, std::string_view reader_type) {
  const auto wanted = (static_cast<std::size_t>(std::max(identification_bits, 0)) + 7) / 8;
  const auto taken = std::min(wanted, epc.size());
  const auto end = is_from_the_front(reader_type) ? taken : epc.size();
  Card value = 0;
  for (std::size_t i = 0; i < std::min(taken, sizeof value); ++i) {
    value |= Card{epc[end - 1 - i]} << 8 * i;
  }
  // Three bytes are a site and a number: the site stands in a word of its own.
  return wanted == 3 ? (value & 0xFFFF) | (value & 0xFF0000) << 16 : value;
}

}  // namespace achost::why
