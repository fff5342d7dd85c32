// The stores of a host that runs.
#pragma once

#include <filesystem>

#include "door/control/stores.h"
#include "door/journal/journal.h"

namespace achost {

// All but the reading connection are the host's, and outlive it.
class HostStores : public Stores {
 public:
  HostStores(std::filesystem::path directory, refhost::SettingsStore& settings, SettingsChanges& changes,
             UserStore& users, const Journal& journal)
      : directory_(std::move(directory)),
        settings_(settings),
        changes_(changes),
        users_(users),
        desired_(users, access_to(settings)),
        journal_(journal),
        audit_(directory_) {}

  const std::filesystem::path& directory() const override { return directory_; }
  const refhost::SettingsStore& settings() override { return settings_; }
  UserStore& users() override { return users_; }
  DesiredState& desired() override { return desired_; }
  refhost::AuditReader& audit() override { return audit_; }
  void wait_for_entries(std::int64_t number, std::chrono::milliseconds longest) override {
    journal_.wait_beyond(number, longest);
  }
  std::vector<SettingsChanges::Awaited> change(const std::vector<refhost::SettingValue>& wanted) override {
    return changes_.change(wanted);
  }
  std::vector<SettingsChanges::Awaited> awaited() override { return changes_.awaited(); }

 private:
  const std::filesystem::path directory_;
  const refhost::SettingsStore& settings_;
  SettingsChanges& changes_;
  UserStore& users_;
  DesiredState desired_;
  const Journal& journal_;
  refhost::AuditReader audit_;
};

}  // namespace achost
