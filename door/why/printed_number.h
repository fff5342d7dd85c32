// From the number that is printed on a card to the settings that make it of the card's EPC.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "door/why/card_value.h"

namespace achost::why {

struct PrintedNumber {
  std::uint64_t number = 0;
  std::optional<std::uint64_t> site = {};  // where it is printed apart
};

// "0012345678", "123,45678" (a site and a number, also with - : or /), "0x21AB". Nothing when it is none of these.
std::optional<PrintedNumber> printed_number(std::string_view text);

// Settings, and the number by which the device knows the card with them.
struct CardForm {
  int identification_bits = 0;
  std::string_view reader_type;
  Card card = 0;
};

// Those that make the printed number of the EPC, the most usual first; one of a number of bits that means the same.
std::vector<CardForm> forms_that_make(std::span<const std::uint8_t> epc, const PrintedNumber& printed);

}  // namespace achost::why
