// Where the host keeps its state.
#pragma once

#include <filesystem>
#include <string>

namespace achost {

// The directory asked for, else what ACHOST_STATE says, made absolute; when neither says anything, /var/lib/achost for
// root, else achost below $XDG_STATE_HOME or ~/.local/state. It need not exist. Throws Failure (kUsage) when there is
// no home.
std::filesystem::path state_directory(const std::string& wanted);

// The same for a command that needs the state. Throws Failure, which names the directory and the way out, when it is
// not there: it may be misspelt, and an empty one would hide that.
std::filesystem::path existing_state(const std::string& wanted);

// The same for a command that writes, also before a host has run: then the directory that is used when none is asked
// for will be made, and standard error says so. One that was asked for must be there.
std::filesystem::path writable_state(const std::string& wanted);

// The same for a command that shows settings, for without a state the defaults hold. One that was asked for must be
// there.
std::filesystem::path settings_state(const std::string& wanted);

// The directory when none is asked for. Either text may be null, as getenv() gives it.
std::filesystem::path usual_state_directory(bool is_root, const char* xdg_state_home, const char* home);

}  // namespace achost
