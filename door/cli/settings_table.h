// The settings, written out.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "refhost/settings_store.h"

namespace achost {

// What a running host has in force of settings whose change not everybody has taken, by section and key.
struct InForce {
  std::string value;
  std::string reason;  // who has failed, and why, when it is known already
};
using ValuesInForce = std::map<std::pair<std::string, std::string>, InForce>;

// One line a setting, in columns, with a heading. Keys of other sections than "uhf" are written SECTION.KEY.
std::string settings_as_table(const refhost::SettingsStore& store, std::size_t width,
                              const ValuesInForce& in_force = {});

// One JSON object a line; with "in_force" and "reason" of those.
std::string settings_as_json(const refhost::SettingsStore& store, const ValuesInForce& in_force);

// The document of all settings, in Markdown.
std::string settings_as_markdown(const refhost::SettingsSchema& schema);

}  // namespace achost
