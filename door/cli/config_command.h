// achost config list, get, set, export and import
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

// The settings that are not the default, as text.
void export_settings(const std::string& state);

// Store all settings of a text file, or none when there is anything wrong with it. A host that runs on that state
// directory is asked to do it. file: "-" is standard input.
void import_settings(const std::string& state, const std::string& file);

// Store [SECTION] KEY VALUE and print the stored value. A host that runs on that state directory is asked to do it, and
// has told its plug-in by then; what is stored may then differ from what was asked for. In place of these words there
// may be any number of [SECTION.]KEY=VALUE: all are stored, or none. force: also more than the region allows.
void set_setting(const std::string& state, const std::vector<std::string>& words, bool force);

}  // namespace achost
