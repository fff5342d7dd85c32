// The stores of a directory on which no daemon runs.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "door/control/stores.h"
#include "door/journal/journal.h"
#include "refhost/instance_lock.h"

namespace achost {

// Each store is opened when it is first asked for; one of a directory that is not locked is opened to be read only. For
// one thread.
class OwnStores : public Stores {
 public:
  explicit OwnStores(std::filesystem::path directory) : directory_(std::move(directory)), audit_(directory_) {}

  // Take the directory for this process alone, before a store is asked for, so that they can be changed. Throws
  // refhost::DirectoryInUse, or ac::ac_exception.
  void lock();

  const std::filesystem::path& directory() const override { return directory_; }
  const refhost::SettingsStore& settings() override { return open_settings(); }
  UserStore& users() override;
  DesiredState& desired() override;
  refhost::AuditReader& audit() override { return audit_; }
  void wait_for_entries(std::int64_t number, std::chrono::milliseconds longest) override;
  std::vector<SettingsChanges::Awaited> change(const std::vector<refhost::SettingValue>& wanted) override;
  std::vector<SettingsChanges::Awaited> awaited() override { return {}; }

 private:
  refhost::SettingsStore& open_settings();
  void note(const Entry& entry);
  bool may_have_new_entries();

  const std::filesystem::path directory_;
  std::optional<refhost::InstanceLock> lock_;  // let go last
  std::optional<refhost::SettingsStore> settings_;
  std::optional<UserStore> users_;
  std::optional<DesiredState> desired_;
  refhost::AuditReader audit_;
  std::optional<Journal> journal_;                // from the first change on
  bool is_noted_ = true;                          // what was changed
  std::filesystem::file_time_type journal_seen_;  // when it was written, at the latest look
};

}  // namespace achost
