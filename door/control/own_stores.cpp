#include "door/control/own_stores.h"

#include <string>
#include <thread>

#include "ac/exception.h"
#include "door/backup/take_over.h"
#include "door/base/settings_rules.h"
#include "door/journal/changes.h"
#include "refhost/log.h"

namespace achost {

void OwnStores::lock() {
  lock_.emplace(directory_);
  take_over(directory_);
}

// Of what is changed; that is so by now, also where it cannot be noted.
void OwnStores::note(const Entry& entry) {
  try {
    if (!journal_.has_value() && is_noted_) {
      journal_.emplace(directory_);
    }
    is_noted_ = is_noted_ && journal_->note(entry);
  } catch (const ac::ac_exception& failure) {
    is_noted_ = false;
    refhost::log::error(std::string("the change is not noted in the journal: ") + failure.what());
  }
}

refhost::SettingsStore& OwnStores::open_settings() {
  using Access = refhost::SettingsStore::Access;
  if (!settings_.has_value()) {
    settings_.emplace(directory_, lock_.has_value() ? Access::read_write : Access::read_only);
    settings_->keep(settings_rules(kUsualWatchdogLimit));
    settings_->on_change([this](const refhost::SettingsStore::Change& change) {
      note(setting_change(change.setting.section + "." + change.setting.key, change.value, change.previous_value));
    });
  }
  return *settings_;
}

UserStore& OwnStores::users() {
  if (!users_.has_value()) {
    users_.emplace(directory_, lock_.has_value() ? UserStore::Access::read_write : UserStore::Access::read_only);
    users_->on_change([this](const Entry& entry) { note(entry); });
  }
  return *users_;
}

DesiredState& OwnStores::desired() {
  if (!desired_.has_value()) {
    auto& settings = open_settings();
    desired_.emplace(users(), access_to(settings));
  }
  return *desired_;
}

// The time of a file goes in ticks, so what was written lately may have been written again.
bool OwnStores::may_have_new_entries() {
  std::error_code none;
  const auto time = std::filesystem::last_write_time(directory_ / "journal.db-wal", none);
  const bool is_new =
      none || time != journal_seen_ || std::filesystem::file_time_type::clock::now() - time < std::chrono::seconds(1);
  journal_seen_ = none ? std::filesystem::file_time_type() : time;
  return is_new;
}

// Whoever writes there is another process, and tells nobody.
void OwnStores::wait_for_entries(std::int64_t /*number*/, std::chrono::milliseconds longest) {
  constexpr std::chrono::milliseconds kPeriod(100);
  const auto deadline = std::chrono::steady_clock::now() + longest;
  do {
    std::this_thread::sleep_for(kPeriod);
  } while (!may_have_new_entries() && std::chrono::steady_clock::now() < deadline);
}

std::vector<SettingsChanges::Awaited> OwnStores::change(const std::vector<refhost::SettingValue>& wanted) {
  open_settings().set(wanted);
  return {};
}

}  // namespace achost
