// What may be asked of the door from here.
#pragma once

#include <string>
#include <string_view>

namespace web {

bool may_be_asked(std::string_view command);

// "door_open, door_mode and why".
std::string commands_text();

}  // namespace web
