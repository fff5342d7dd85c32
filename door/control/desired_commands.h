#pragma once

#include <vector>

#include "door/control/control.h"
#include "door/control/stores.h"

namespace achost {

// desired_apply and desired_state. The stores outlive them.
std::vector<ControlCommand> desired_commands(Stores& stores);

}  // namespace achost
