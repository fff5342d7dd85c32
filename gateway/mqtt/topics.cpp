#include "gateway/mqtt/topics.h"

#include <algorithm>

namespace mqtt::topics {

bool is_id(std::string_view text) {
  return !text.empty() && text.size() <= 64 &&
         std::ranges::all_of(text, [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'; });
}

std::optional<std::string_view> behind(std::string_view text, std::string_view beginning) {
  return text.starts_with(beginning) ? std::optional(text.substr(beginning.size())) : std::nullopt;
}

std::optional<Place> place_of(std::string_view topic) {
  const auto rest = behind(topic, "doors/");
  const auto slash = rest.has_value() ? rest->find('/') : std::string_view::npos;
  if (slash == std::string_view::npos || !is_id(rest->substr(0, slash))) {
    return std::nullopt;
  }
  return Place{.door = rest->substr(0, slash), .rest = rest->substr(slash + 1)};
}

std::optional<std::string_view> serial_of_request(std::string_view topic) {
  const auto newcomer = behind(topic, "provision/new-").value_or("");
  const auto serial = newcomer.substr(0, newcomer.find('/'));
  return is_serial(serial) && topic == provision_request(serial) ? std::optional(serial) : std::nullopt;
}

}  // namespace mqtt::topics
