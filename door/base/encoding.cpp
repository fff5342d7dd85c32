#include "door/base/encoding.h"

#include "refhost/log_entry.h"

namespace achost {
namespace {

// The length of the character that begins the text; 0 when none does.
std::size_t character_length(std::string_view text) {
  const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  const std::size_t length = first < 0x80   ? 1
                             : first < 0xC2 ? 0
                             : first < 0xE0 ? 2
                             : first < 0xF0 ? 3
                             : first < 0xF5 ? 4
                                            : 0;
  if (length > text.size()) {
    return 0;
  }
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80) {
      return 0;
    }
  }
  const bool is_wrong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F) ||
                        (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F);
  return is_wrong ? 0 : length;
}

}  // namespace

std::string_view without_blanks(std::string_view text) {
  const auto begin = text.find_first_not_of(" \t");
  return begin == text.npos ? "" : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

std::string in_quotes(std::string_view text) { return "\"" + refhost::log::escape(text) + "\""; }

std::size_t utf8_end(std::string_view text) {
  std::size_t place = 0;
  while (place < text.size()) {
    const std::size_t length = character_length(text.substr(place));
    if (length == 0) {
      return place;
    }
    place += length;
  }
  return place;
}

}  // namespace achost
