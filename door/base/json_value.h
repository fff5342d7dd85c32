// Values of JSON in messages.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace achost {

// What it is, for somebody who has given it in the wrong place. Of a list or an object no more than that: whoever sends
// it decides how deep it is nested, and writing it out goes as deep.
inline std::string in_message(const nlohmann::json& value) {
  return value.is_array() ? "a list" : value.is_object() ? "an object" : value.dump(-1, ' ', true);
}

}  // namespace achost
