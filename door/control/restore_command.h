// Taking over a backup that is restored.
#pragma once

#include <filesystem>
#include <functional>

#include "door/control/control.h"
#include "door/journal/entry.h"

namespace achost {

// restore: what prepare_restore() has put there takes the place of all that is stored, when the host starts anew, which
// it does at once. A line {"kept"} tells where what was there will be. start_anew: null where the host cannot. note: in
// the journal that goes.
ControlCommand restore_command(const std::filesystem::path& state, std::function<void()> start_anew,
                               std::function<void(const Entry&)> note);

}  // namespace achost
