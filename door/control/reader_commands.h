// What a running host can be asked about its reader's line.
#pragma once

#include <vector>

#include "door/control/control.h"
#include "line/line.h"

namespace achost {

// How the reader does: "state", "cause", "way_out", times in seconds, and counts. Without a line "state" is "direct".
Json health_of(const line::Line* line);

// health, recording, look_on, ask_reader and borrow. line: null when the plug-in has the port itself; then they say so.
std::vector<ControlCommand> reader_commands(line::Line* line);

}  // namespace achost
