// The settings, written out.
#pragma once

#include <string>

#include "refhost/settings_store.h"

namespace achost {

// One line a setting, in columns, with a heading. Keys of other sections than "uhf" are written SECTION.KEY.
std::string settings_as_table(const refhost::SettingsStore& store, std::size_t width);

// One JSON object a line.
std::string settings_as_json(const refhost::SettingsStore& store);

// The document of all settings, in Markdown.
std::string settings_as_markdown(const refhost::SettingsSchema& schema);

}  // namespace achost
