// What a running host can be asked about its reader's line.
#pragma once

#include <functional>
#include <vector>

#include "door/base/local_time.h"
#include "door/control/control.h"
#include "door/journal/entry.h"
#include "line/line.h"

namespace achost {

// How the reader does: "state", "cause", "way_out", times in seconds, and counts. Without a line "state" is "direct".
Json health_of(const line::Line* line);

// What the clock on the wall showed then.
Milliseconds wall_time(line::Clock::time_point then);

// Throws std::runtime_error where the plug-in has the port itself.
line::Line& needed(line::Line* line);

// health, recording, look_on, ask_reader and borrow. line: null when the plug-in has the port itself; then they say so.
// note: in the journal.
std::vector<ControlCommand> reader_commands(line::Line* line, const std::function<void(const Entry&)>& note);

}  // namespace achost
