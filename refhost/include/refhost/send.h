// Sending a message in one expression.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace refhost {

using FieldValue = std::variant<int, std::int64_t, std::string>;

// Send a message with these fields, in this order. Any thread may call.
void send(const std::string& type, const std::vector<std::pair<std::string, FieldValue>>& fields = {});

}  // namespace refhost
