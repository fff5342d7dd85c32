// How a running host stands.
#pragma once

#include "door/control/control_commands.h"

namespace achost {

// Uptime, plug-in, reader, door, threads with their last keep-alive, queues, counters and the reader's settings.
Json status_of(const ControlledHost& host);

// The numbers that monitoring wants. What counts only grows, from the start of the process on.
Json figures_of(const ControlledHost& host);

}  // namespace achost
