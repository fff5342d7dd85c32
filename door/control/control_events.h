// Following the bus from another process.
#pragma once

#include "door/control/control.h"

namespace achost {

// Sends a line for each message on the bus until the client goes: {"time", "message", "fields"}, of the types in the
// request's "types" (separated by commas) if there are any. A client that reads too slowly misses messages, and gets
// {"left_out": N} in their place; the bus never waits for it.
Json follow_events(const Json& request, ControlStream& stream);

}  // namespace achost
