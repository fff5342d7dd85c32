#include "door/cli/card_argument.h"

#include <charconv>

#include "door/base/failure.h"
#include "refhost/log_entry.h"

namespace achost {

std::uint64_t asked_card(const std::string& text) {
  const bool is_hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  const std::string digits = is_hexadecimal ? text.substr(2) : text;
  std::uint64_t card = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), card, is_hexadecimal ? 16 : 10);
  if (result.ec != std::errc() || result.ptr != digits.data() + digits.size()) {
    throw Failure(kUsage, "\"" + refhost::log::escape(text) + "\" is no card: a number such as 33 or 0x21");
  }
  return card;
}

}  // namespace achost
