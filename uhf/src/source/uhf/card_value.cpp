#include "card_value.h"

#include <algorithm>
#include <cstddef>
#include <span>
#include <string>

#include "debug_log.h"
#include "settings.h"

namespace {

// The bytes that make the value, first one most significant.
std::span<const unsigned char> valueBytes(const std::vector<unsigned char>& epc, std::size_t count, bool fromFront) {
  const std::span<const unsigned char> bytes(epc);
  const auto taken = std::min(count, bytes.size());
  return fromFront ? bytes.first(taken) : bytes.last(taken);
}

}  // namespace

std::uint64_t toCardValue(const std::vector<unsigned char>& epc) {
  const int bits = std::max(intSetting("identification_bits"), 0);
  const int bytes = bits / 8 + (bits % 8 != 0);
  const auto count = static_cast<std::size_t>(bytes);
  const bool fromFront = toLower(textSetting("reader_type")) == "lsb";
  std::uint64_t value = 0;
  for (const unsigned char byte : valueBytes(epc, count, fromFront)) {
    value = value << 8 | byte;
  }
  if (count == 3) {
    value = (value & 0xFFFF) | (value >> 16 & 0xFF) << 32;
  }
  debugLog("Card Value: " + std::to_string(value), __func__, __LINE__);
  return value;
}
