#include "door/why/printed_number.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace achost::why {

namespace {

// The longest window that still is another number: from the front each byte more moves it on.
constexpr std::size_t kLongest = 64;

std::optional<std::uint64_t> number_of(std::string_view text, int base) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

// Three bytes are announced with the site in a word of its own; as one number they are printed all the same.
std::uint64_t as_one_number(Card card, std::size_t bytes) {
  return bytes == 3 ? (card & 0xFFFF) | (card >> 16 & 0xFF0000) : card;
}

bool makes(const PrintedNumber& printed, Card card, std::size_t bytes) {
  const auto whole = as_one_number(card, bytes);
  const bool has_site = bytes == 3 || bytes == 4;  // in front of two bytes of number
  const auto site = whole >> 16;
  const auto number = whole & 0xFFFF;
  if (printed.site.has_value()) {
    return has_site && site == *printed.site && number == printed.number;
  }
  constexpr std::uint64_t kFiveDigits = 100'000;  // both without a mark between: 12345678 is 123 and 45678
  return printed.number == card || printed.number == whole ||
         (bytes == 3 && printed.number == site * kFiveDigits + number);
}

// As readers of cards call so many bytes.
int bits_of(std::size_t bytes) { return bytes == 5 ? 34 : static_cast<int>(bytes * 8); }

std::size_t unusualness(const CardForm& form) {
  constexpr std::array<int, 4> kUsual = {32, 24, 34, 64};
  return static_cast<std::size_t>(std::ranges::find(kUsual, form.identification_bits) - kUsual.begin());
}

}  // namespace

std::optional<PrintedNumber> printed_number(std::string_view text) {
  std::string plain;
  std::ranges::copy_if(text, std::back_inserter(plain), [](char c) { return c != ' '; });
  if (plain.starts_with("0x") || plain.starts_with("0X")) {
    const auto number = number_of(std::string_view(plain).substr(2), 16);
    return number.has_value() ? std::optional(PrintedNumber{.number = *number}) : std::nullopt;
  }
  if (const auto mark = plain.find_first_of(",-:/"); mark != std::string::npos) {
    const auto site = number_of(std::string_view(plain).substr(0, mark), 10);
    const auto number = number_of(std::string_view(plain).substr(mark + 1), 10);
    return site.has_value() && number.has_value() ? std::optional(PrintedNumber{.number = *number, .site = site})
                                                  : std::nullopt;
  }
  const bool has_letters = plain.find_first_of("abcdefABCDEF") != std::string::npos;
  const auto number = number_of(plain, has_letters ? 16 : 10);
  return number.has_value() ? std::optional(PrintedNumber{.number = *number}) : std::nullopt;
}

std::vector<CardForm> forms_that_make(std::span<const std::uint8_t> epc, const PrintedNumber& printed) {
  std::vector<CardForm> forms;
  if (epc.empty()) {
    return forms;
  }
  for (const std::string_view type : {"msb", "lsb"}) {
    // All of it is the same from either end.
    const auto most = type == "msb" ? std::min(epc.size(), sizeof(Card)) : std::min(epc.size() - 1, kLongest);
    for (std::size_t bytes = 1; bytes <= most; ++bytes) {
      const int bits = bits_of(bytes);
      if (const Card card = card_value(epc, bits, type); makes(printed, card, bytes)) {
        forms.push_back({.identification_bits = bits, .reader_type = type, .card = card});
      }
    }
  }
  std::ranges::stable_sort(forms, {}, unusualness);
  return forms;
}

}  // namespace achost::why
