// A copy of all that is stored, for who asks.
#pragma once

#include "door/control/stores.h"

namespace achost {

// backup: a line {"file", "size"} for each store, and its bytes.
ControlCommand backup_command(Stores& stores);

}  // namespace achost
