#include "door/control/audit_commands.h"
#include "door/control/backup_command.h"
#include "door/control/desired_commands.h"
#include "door/control/journal_commands.h"
#include "door/control/schedule_commands.h"
#include "door/control/setting_commands.h"
#include "door/control/stores.h"
#include "door/control/user_commands.h"

namespace achost {

std::vector<ControlCommand> store_commands(Stores& stores) {
  auto commands = setting_commands(stores);
  for (auto& more : {user_commands(stores), schedule_commands(stores), desired_commands(stores), audit_commands(stores),
                     journal_commands(stores)}) {
    commands.insert(commands.end(), more.begin(), more.end());
  }
  commands.push_back(backup_command(stores));
  return commands;
}

}  // namespace achost
