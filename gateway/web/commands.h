// What may be asked of the door from here.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "gateway/web/access.h"

namespace web {

// The least role for it; nothing for what cannot be asked here.
std::optional<Role> role_for(std::string_view command);

// "door, door_open, why".
std::string commands_text();

}  // namespace web
