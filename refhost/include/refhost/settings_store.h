// The configuration store.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ac/message.h"
#include "refhost/settings_rule.h"
#include "refhost/settings_schema.h"
#include "refhost/store_report.h"

namespace refhost {

// All settings of the schema, kept in memory and in the SQLite file settings.db: a read costs some tens of nanoseconds,
// a write is durable before it returns. Any thread may call, except where said otherwise.
class SettingsStore {
 public:
  enum class Access {
    read_only,   // nothing is written; without a file every setting has its default
    read_write,  // the directory (mode 0700) and the file are made when missing
  };

  struct Change {
    const Setting& setting;
    std::string value;
    std::string previous_value;
  };

  // Open DIRECTORY/settings.db. Throws ac::ac_exception, with nothing changed, when the file is no settings database or
  // is of a newer version. A stored value that the schema does not allow (any more) is logged and counts as the
  // default.
  SettingsStore(const std::filesystem::path& directory, Access access,
                const SettingsSchema& schema = SettingsSchema::builtin());
  ~SettingsStore();
  SettingsStore(const SettingsStore&) = delete;
  SettingsStore& operator=(const SettingsStore&) = delete;

  // Called after each change of a value by set(), in the order of the changes, on the thread that made it. It must not
  // call set(). To be set before other threads use the store.
  void on_change(std::function<void(const Change&)> callback);

  // What values must keep together. To be set before other threads use the store.
  void keep(std::vector<SettingsRule> rules);

  // Where the values, stored as they are, break a rule, put the rule's safe ones in their place for this run. Returns
  // what was wrong and what the run has, in words.
  std::vector<std::string> make_safe_for_run();

  // Throws SettingError, with the reason, when the values break a rule.
  void check_rules() const;

  // A plug-in begins: a setting that is not live is in force with the value of now, whatever is stored later.
  void begin_run();

  // The value; nothing when there is no such setting.
  std::optional<std::string> get(std::string_view section, std::string_view key) const;

  // The value as a number, without a lock; nothing when there is no such setting or it is no number.
  std::optional<int> get_int(std::string_view section, std::string_view key) const noexcept;

  // Throws SettingError where set() would. Nothing is changed.
  void check(const std::vector<SettingValue>& wanted) const;

  // Check the value, and the rules that look at it, with what is stored and with what is in force; write it durably and
  // make it the setting's value. Nothing happens when it is the stored value already. Throws SettingError, or
  // ac::ac_exception when the file cannot be written; nothing is changed then.
  void set(std::string_view section, std::string_view key, const std::string& value);

  // The same for several at once: all are written in one transaction, or none; then each change is told, in their
  // order.
  void set(const std::vector<SettingValue>& wanted);

  // Check the value and make it the setting's value for this run, in memory only and without telling anybody. A later
  // set() takes its place. Throws SettingError.
  void override_for_run(std::string_view section, std::string_view key, const std::string& value);

  // Whether the value is this run's alone. Throws SettingError.
  bool is_overridden(std::string_view section, std::string_view key) const;

  // What was wrong with the file when it was opened, a line each; none when it is read only.
  std::vector<std::string> faults() const;

  // Examine the stored settings of a directory and their copy, also while a host writes there.
  static StoreReport inspect(const std::filesystem::path& directory);

  // Close the file for good, at the end of the process. A thread that writes from now on waits for that end; reading
  // goes on.
  void seal();

  const SettingsSchema& schema() const;

  // The store behind ac::config and ac::config_util, null at the start. A store that is current must not be destroyed
  // while other threads run.
  static SettingsStore* current() noexcept;
  static void make_current(SettingsStore* store) noexcept;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// The section of the settings that belong to no module.
inline constexpr std::string_view kSystemSection = "system";

// The announcement of a change: "config_param_set" with strings "module", "param", "value" and "previous_value", int
// "sys_config" 0; a setting of the system has no "module" and "sys_config" 1.
std::unique_ptr<ac::Message> announcement_of(const SettingsStore::Change& change);

}  // namespace refhost
