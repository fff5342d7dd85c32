// What settings there are: the host's list of keys with type, default, range, unit and help.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ac/exception.h"

namespace refhost {

// A key that does not exist or a value that the schema does not allow; what() names the key, what was given and what
// would be right.
class SettingError : public ac::ac_exception {
 public:
  explicit SettingError(const std::string& text) : ac_exception(text, true) {}
};

enum class SettingType {
  integer,     // a decimal number from min to max
  choice,      // one of `choices`, in capital or small letters
  flag,        // 0 or 1
  int_ranges,  // numbers and ranges of numbers from min to max: "0-10;26-51"
  text,        // anything printable
  path,        // an absolute path
};

// One key.
struct Setting {
  std::string section;
  std::string key;
  SettingType type = SettingType::text;
  std::string default_value;
  std::int64_t min = 0;
  std::int64_t max = 0;
  std::vector<std::string> choices;
  std::string unit;    // empty: none
  std::string safest;  // what holds when nobody knows any more what was stored; empty: the default
  bool live = false;   // a change applies to a running plug-in; else at its next start
  std::string help;    // one line

  // What is allowed, for a person: "0 to 65535", "inhibit, trigger or continuous".
  std::string allowed() const;

  // Throws SettingError when the value is not allowed.
  void check(const std::string& value) const;
};

// A setting's value, as somebody asks for it.
struct SettingValue {
  std::string section;
  std::string key;
  std::string value;

  bool operator==(const SettingValue&) const = default;
};

// Constant once made; any thread may read.
class SettingsSchema {
 public:
  // From the text of settings.json. Throws std::exception when it is not as it should be.
  explicit SettingsSchema(std::string_view json);

  // The one that is built in.
  static const SettingsSchema& builtin();

  // In the order of the file.
  const std::vector<Setting>& settings() const { return settings_; }

  // The setting. Throws SettingError, which names the nearest key, when there is none.
  const Setting& at(std::string_view section, std::string_view key) const;

 private:
  std::vector<Setting> settings_;
};

}  // namespace refhost
