// How the door stands, for a person.
#pragma once

#include <string>
#include <vector>

#include "door/control/control.h"

namespace achost {

// door: the answer to the command "door". A row each for its lock, mode, contact and case.
std::vector<std::vector<std::string>> door_rows(const Json& door);

}  // namespace achost
