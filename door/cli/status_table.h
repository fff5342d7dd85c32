// How a host stands, for a person.
#pragma once

#include <string>

#include "door/control/control.h"

namespace achost {

// status: the answer to the command "status".
std::string status_table(const Json& status);

}  // namespace achost
