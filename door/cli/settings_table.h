// The settings, written out.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "refhost/settings_schema.h"

namespace achost {

// What a running host has in force of a setting whose change not everybody has taken.
struct InForce {
  std::string value;
  std::string reason;  // who has failed, and why, when it is known already
};

// A setting as it stands.
struct SettingState {
  const refhost::Setting& setting;
  std::string value;
  bool is_overridden = false;  // for the run of a host
  std::optional<InForce> in_force = std::nullopt;
};
using SettingStates = std::vector<SettingState>;

// One line a setting, in columns, with a heading. Keys of other sections than "uhf" are written SECTION.KEY.
std::string settings_as_table(const SettingStates& settings, std::size_t width);

// One JSON object a line; with "in_force" and "reason" of those.
std::string settings_as_json(const SettingStates& settings);

// The document of all settings, in Markdown.
std::string settings_as_markdown(const refhost::SettingsSchema& schema);

}  // namespace achost
