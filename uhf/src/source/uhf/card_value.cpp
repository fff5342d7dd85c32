#include "card_value.h"

#include <string>

#include "debug_log.h"
#include "settings.h"

namespace {

// Made once: they are asked for with every tag.
const std::string BITS = "identification_bits";
const std::string READER_TYPE = "reader_type";

}  // namespace

std::uint64_t toCardValue(const std::vector<unsigned char>& epc) {
  std::string line;
  return toCardValue(epc, line);
}

std::uint64_t toCardValue(const std::vector<unsigned char>& epc, std::string& line) {
  const int bits = intSetting(BITS);
  const auto value = cardValueOf(epc, bits, toLower(textSetting(READER_TYPE)) == "lsb");
  line = "Card Value: ";
  line += std::to_string(value);
  debugLog(line, __func__, __LINE__);
  return value;
}
