// What may be asked of the door from here.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/web/access.h"

namespace web {

struct Command {
  std::string_view name;
  Role least;
  std::chrono::seconds patience = std::chrono::seconds(5);  // for its answer
};

// Nothing for what cannot be asked here.
std::optional<Command> command_of(std::string_view name);

// "door, door_open, why".
std::string commands_text();

}  // namespace web
