// Taking over a backup that is restored.
#pragma once

#include <filesystem>
#include <functional>

#include "door/control/control.h"

namespace achost {

// restore: what prepare_restore() has put there takes the place of all that is stored, when the host starts anew, which
// it does at once. A line {"kept"} tells where what was there will be. start_anew: null where the host cannot.
ControlCommand restore_command(const std::filesystem::path& state, std::function<void()> start_anew);

}  // namespace achost
