// What the commands on settings, users, cards and audit records work with.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "door/control/control.h"
#include "door/services/desired_state.h"
#include "door/services/settings_changes.h"
#include "door/services/user_store.h"
#include "refhost/audit_log.h"
#include "refhost/settings_store.h"

namespace achost {

// The stores of a state directory, which has one owner: the daemon that runs there, else the command that a person has
// given. Only commands that say so in ControlCommand::changes change anything. Any thread may call.
class Stores {
 public:
  virtual ~Stores() = default;

  virtual const std::filesystem::path& directory() const = 0;
  virtual const refhost::SettingsStore& settings() = 0;
  virtual UserStore& users() = 0;
  virtual DesiredState& desired() = 0;
  virtual refhost::AuditReader& audit() = 0;

  // Wait until the journal may have entries with greater numbers than that on the disk, or the time is over.
  virtual void wait_for_entries(std::int64_t number, std::chrono::milliseconds longest) = 0;

  // Store the values, all or none; those that are not in force afterwards.
  virtual std::vector<SettingsChanges::Awaited> change(const std::vector<refhost::SettingValue>& wanted) = 0;

  // The settings that are stored and not in force.
  virtual std::vector<SettingsChanges::Awaited> awaited() = 0;
};

// desired_apply, desired_state, config_list, config_get, config_set, config_import, config_export, user_list, user_put,
// user_remove, card_list, card_add, card_remove, audit_query, journal_query and backup. The stores outlive them.
std::vector<ControlCommand> store_commands(Stores& stores);

}  // namespace achost
