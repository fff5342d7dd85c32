// achost config list, get and set
#pragma once

#include <string>
#include <vector>

namespace achost {

// Each writes to standard output and throws an exception when it cannot. state: as in RunOptions.

// All settings: a table, or one JSON object a line.
void list_settings(const std::string& state, bool json);

// The document of all settings, in Markdown; of no state directory.
void document_settings();

// The value of [SECTION] KEY.
void get_setting(const std::string& state, const std::vector<std::string>& name);

// Store [SECTION] KEY VALUE and print the stored value. A host that runs on that state directory is asked to do it, and
// has told its plug-in by then; what is stored may then differ from what was asked for.
void set_setting(const std::string& state, const std::vector<std::string>& words);

}  // namespace achost
