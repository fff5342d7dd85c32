// What the door does, as a person says it behind "the door".
#pragma once

#include <string>
#include <string_view>

namespace achost {

// state: of the message "door_contact". "was forced: opened without a release"; of one that is none, itself.
std::string contact_words(std::string_view state);

// mode, by: of the message "door_mode". "is in mode locked, by its schedule".
std::string mode_words(std::string_view mode, std::string_view by);

}  // namespace achost
