// JSON as it goes between the daemon, the gateways and those who ask them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace gateway {

using Json = nlohmann::ordered_json;

// Nothing that is told here is nested deeper.
inline constexpr int kDeepest = 32;

// Discarded where it is none, or is nested deeper: what copies or writes JSON goes as deep as it does, however little
// memory there is for that, and whoever sends it decides.
Json parsed(std::string_view text);

// An object on a line of its own, with its newline; what is no UTF-8 is replaced.
std::string line_of(const Json& json);

}  // namespace gateway
