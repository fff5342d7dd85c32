// Where the host keeps its state.
#pragma once

#include <filesystem>
#include <string>

namespace achost {

// The directory asked for, made absolute; when none is, /var/lib/achost for root, else achost below $XDG_STATE_HOME or
// ~/.local/state. Throws Failure (kUsage) when there is no home.
std::filesystem::path state_directory(const std::string& wanted);

// The directory when none is asked for. Either text may be null, as getenv() gives it.
std::filesystem::path usual_state_directory(bool is_root, const char* xdg_state_home, const char* home);

}  // namespace achost
