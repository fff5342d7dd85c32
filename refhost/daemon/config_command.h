// achost config list, get and set
#pragma once

#include <string>
#include <vector>

namespace achost {

// Each writes to standard output and throws an exception when it cannot. state: as in RunOptions.

// All settings: a table, or one JSON object a line.
void list_settings(const std::string& state, bool json);

// The value of [SECTION] KEY.
void get_setting(const std::string& state, const std::vector<std::string>& name);

// Store [SECTION] KEY VALUE and print the stored value. Refused while a host runs on that state directory.
void set_setting(const std::string& state, const std::vector<std::string>& words);

}  // namespace achost
