#include "uhfsim/text.h"

#include <algorithm>
#include <cstddef>

namespace uhfsim {

std::vector<std::string_view> words_of(std::string_view line) {
  constexpr std::string_view kBlanks = " \t\r";
  line = line.substr(0, line.find('#'));
  std::vector<std::string_view> words;
  for (std::size_t begin = line.find_first_not_of(kBlanks); begin != line.npos;) {
    const std::size_t end = std::min(line.find_first_of(kBlanks, begin), line.size());
    words.push_back(line.substr(begin, end - begin));
    begin = line.find_first_not_of(kBlanks, end);
  }
  return words;
}

std::string quoted(std::string_view text) {
  std::string result(text);
  std::ranges::replace_if(
      result, [](char c) { return c < ' ' || c == '\x7F'; }, '?');
  return '"' + result + '"';
}

std::string alternatives(const std::vector<std::string_view>& names) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += i + 1 == names.size() ? " or " : ", ";
    text += names[i];
  }
  return text;
}

std::string hex_of(ByteView bytes) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

}  // namespace uhfsim
