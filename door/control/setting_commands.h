// What can be asked about settings.
#pragma once

#include <vector>

#include "door/control/stores.h"

namespace achost {

// config_schema, config_list, config_get, config_set, config_import and config_export.
std::vector<ControlCommand> setting_commands(Stores& stores);

}  // namespace achost
