#include "door/cli/card_mask.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

#include "refhost/log_entry.h"

namespace achost {
namespace {

bool is_digit(unsigned char c) { return std::isdigit(c) != 0; }
bool is_hexadecimal(unsigned char c) { return std::isxdigit(c) != 0; }

// Each run of such digits behind the word.
void mask_behind(std::string_view word, bool (*is_of_number)(unsigned char), std::string& text) {
  for (auto at = text.find(word); at != text.npos; at = text.find(word, at)) {
    at += word.size();
    const auto begin = text.begin() + static_cast<std::ptrdiff_t>(at);
    const auto length = static_cast<std::size_t>(std::find_if_not(begin, text.end(), is_of_number) - begin);
    text.replace(at, length, refhost::log::mask_digits(std::string_view(text).substr(at, length)));
  }
}

}  // namespace

std::string mask_cards(std::string text) {
  mask_behind("card ", is_digit, text);
  mask_behind("Card ", is_digit, text);
  mask_behind("EPC ", is_hexadecimal, text);
  mask_behind("tag ", is_hexadecimal, text);
  return text;
}

std::string for_this_output(std::string text, bool shows_cards) {
  return shows_cards || isatty(STDOUT_FILENO) != 0 ? text : mask_cards(std::move(text));
}

}  // namespace achost
