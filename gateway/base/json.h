// JSON as it goes between the daemon, the gateways and those who ask them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace gateway {

using Json = nlohmann::ordered_json;

// An object on a line of its own, with its newline; what is no UTF-8 is replaced.
std::string line_of(const Json& json);

}  // namespace gateway
