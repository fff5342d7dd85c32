// What settings that are allowed one by one must keep together.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "refhost/settings_schema.h"

namespace refhost {

struct SettingsRule {
  // The value of a setting by section and key.
  using Values = std::function<std::string(const std::string& section, const std::string& key)>;

  std::vector<std::pair<std::string, std::string>> of;     // section and key of those that it looks at
  std::function<std::string(const Values& values)> fault;  // why they do not go together; empty when they do
  std::vector<SettingValue> safe;                          // for a run that finds it broken
};

}  // namespace refhost
