// A message of the bus as a recording has it.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace achost::why {

// What the door says beside the bus: it was to open, and could not.
inline constexpr std::string_view kDoorRefused = "door_refused";

// A note: the type of the message, then " name=value" for each field.
class NotedMessage {
 public:
  // The note must outlive it.
  explicit NotedMessage(std::string_view note) : note_(note) {}

  bool is(std::string_view type) const { return note_.substr(0, note_.find(' ')) == type; }

  // Up to the next blank.
  std::string_view word(std::string_view name) const {
    const auto value = from(name);
    return value.substr(0, value.find(' '));
  }
  // Up to the field of the next name, or to the end.
  std::string text(std::string_view name, std::string_view next = "") const {
    const auto value = from(name);
    return std::string(next.empty() ? value : value.substr(0, value.rfind(field(next))));
  }
  // Up to the first field that has one of these names, or to the end.
  std::string text(std::string_view name, std::span<const char* const> names) const {
    auto value = from(name);
    for (const char* const next : names) {
      value = value.substr(0, value.find(field(next)));
    }
    return std::string(value);
  }
  template <typename Number = std::int64_t>
  std::optional<Number> number(std::string_view name) const {
    const auto digits = word(name);
    Number value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    const bool is_number = error == std::errc() && end == digits.data() + digits.size();
    return is_number ? std::optional(value) : std::nullopt;
  }

 private:
  static std::string field(std::string_view name) { return " " + std::string(name) + "="; }
  std::string_view from(std::string_view name) const {
    const auto place = note_.find(field(name));
    return place == std::string_view::npos ? "" : note_.substr(place + name.size() + 2);
  }

  std::string_view note_;
};

}  // namespace achost::why
