// A setting and its value on the command line.
#pragma once

#include <string>
#include <vector>

#include "refhost/settings_schema.h"

namespace achost {

inline constexpr const char* kDefaultSection = "uhf";

using Assignment = refhost::SettingValue;

// The value as the setting holds it, where people may write another: a power as "21dBm". Throws refhost::SettingError
// when it might be meant in either unit; anything else is left to the schema.
std::string stored_form(const refhost::Setting& setting, const std::string& value);

// Of the setting KEY or SECTION.KEY, checked against the built-in schema. Throws refhost::SettingError.
Assignment checked_assignment(const std::string& name, const std::string& value);

// From KEY=VALUE or SECTION.KEY=VALUE, checked against the built-in schema. Throws Failure (kUsage).
Assignment parse_assignment(const std::string& text);
std::vector<Assignment> parse_assignments(const std::vector<std::string>& texts);

}  // namespace achost
