// What can be asked about schedules and holidays.
#pragma once

#include <vector>

#include "door/control/stores.h"

namespace achost {

// schedule_list, schedule_import, schedule_export and schedule_remove. The list says of each schedule whether it holds
// now, else when it begins. The text of an import or export goes as bytes.
std::vector<ControlCommand> schedule_commands(Stores& stores);

}  // namespace achost
