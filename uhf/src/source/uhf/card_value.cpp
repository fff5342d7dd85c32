#include "card_value.h"

#include <string>

#include "debug_log.h"
#include "settings.h"

std::uint64_t toCardValue(const std::vector<unsigned char>& epc) {
  const int bits = intSetting("identification_bits");
  const auto value = cardValueOf(epc, bits, toLower(textSetting("reader_type")) == "lsb");
  debugLog("Card Value: " + std::to_string(value), __func__, __LINE__);
  return value;
}
