#include "door/control/own_stores.h"

#include "door/backup/take_over.h"
#include "door/base/settings_rules.h"

namespace achost {

void OwnStores::lock() {
  lock_.emplace(directory_);
  take_over(directory_);
}

refhost::SettingsStore& OwnStores::open_settings() {
  using Access = refhost::SettingsStore::Access;
  if (!settings_.has_value()) {
    settings_.emplace(directory_, lock_.has_value() ? Access::read_write : Access::read_only);
    settings_->keep(settings_rules(kUsualWatchdogLimit));
  }
  return *settings_;
}

UserStore& OwnStores::users() {
  if (!users_.has_value()) {
    users_.emplace(directory_, lock_.has_value() ? UserStore::Access::read_write : UserStore::Access::read_only);
  }
  return *users_;
}

std::vector<SettingsChanges::Awaited> OwnStores::change(const std::vector<refhost::SettingValue>& wanted) {
  open_settings().set(wanted);
  return {};
}

}  // namespace achost
