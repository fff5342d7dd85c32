// Decimal numbers of settings.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace refhost {

// The number when the whole text is one: an optional '-' and digits, that fit 64 bits.
inline std::optional<std::int64_t> parse_number(std::string_view text) {
  std::int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [parsed_to, failure] = std::from_chars(text.data(), end, number);
  if (failure != std::errc() || parsed_to != end) {
    return std::nullopt;
  }
  return number;
}

}  // namespace refhost
