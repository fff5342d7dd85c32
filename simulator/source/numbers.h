#pragma once

#include <charconv>
#include <optional>
#include <string_view>

namespace uhfsim {

/// The number that the whole text is, or nothing; format is a base or a std::chars_format. No sign other than '-', no
/// blanks. For real numbers "nan" and "inf" are numbers: check the range in a way that they fail.
template <class T, class... Format>
std::optional<T> number_from(std::string_view text, Format... format) {
  T value{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, format...);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

}  // namespace uhfsim
