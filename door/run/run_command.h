// achost run
#pragma once

#include "door/run/run_options.h"

namespace achost {

// Load the plug-in and run it. Throws an exception when that cannot be begun, with everything as it was; otherwise it
// ends the process: the plug-in's threads never stop, so nothing may be destroyed under them.
[[noreturn]] void run(const RunOptions& options);

}  // namespace achost
