// What came from a door, of which nothing is sure.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "gateway/base/json.h"

namespace fleet {

using Json = nlohmann::ordered_json;

// An object; an empty one of what is none.
inline Json object_of(std::string_view text) {
  Json json = gateway::parsed(text);
  return json.is_object() ? std::move(json) : Json::object();
}

// One line; what is no UTF-8 is replaced.
inline std::string line_of(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

// Null where it is not.
inline Json value_in(const Json& object, const char* key) {
  const auto found = object.is_object() ? object.find(key) : object.end();
  return object.is_object() && found != object.end() ? *found : Json();
}

inline std::string text_in(const Json& object, const char* key) {
  const Json value = value_in(object, key);
  return value.is_string() ? value.get<std::string>() : "";
}

inline std::optional<std::int64_t> number_in(const Json& object, const char* key) {
  const Json value = value_in(object, key);
  return value.is_number_integer() ? std::optional(value.get<std::int64_t>()) : std::nullopt;
}

inline bool flag_in(const Json& object, const char* key) {
  const Json value = value_in(object, key);
  return value.is_boolean() && value.get<bool>();
}

}  // namespace fleet
