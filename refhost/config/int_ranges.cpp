#include "config/int_ranges.h"

#include <cstdint>

#include "config/number.h"

namespace refhost {
namespace {

// Bounds the list that one short range can ask for.
constexpr std::int64_t kLargest = 65535;

std::optional<int> bound(std::string_view text) {
  const auto number = parse_number(text);
  if (!number.has_value() || *number < 0 || *number > kLargest) {
    return std::nullopt;
  }
  return static_cast<int>(*number);
}

bool append_range(std::string_view text, std::vector<int>& numbers) {
  const auto hyphen = text.find('-');
  const auto first = bound(text.substr(0, hyphen));
  const auto last = hyphen == std::string_view::npos ? first : bound(text.substr(hyphen + 1));
  if (!first.has_value() || !last.has_value() || *first > *last) {
    return false;
  }
  for (int number = *first; number <= *last; ++number) {
    numbers.push_back(number);
  }
  return true;
}

}  // namespace

std::optional<std::vector<int>> parse_int_ranges(std::string_view text) {
  std::vector<int> numbers;
  for (;;) {
    const auto separator = text.find(';');
    if (!append_range(text.substr(0, separator), numbers)) {
      return std::nullopt;
    }
    if (separator == std::string_view::npos) {
      return numbers;
    }
    text.remove_prefix(separator + 1);
  }
}

}  // namespace refhost
