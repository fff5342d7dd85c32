// Following the bus from another process.
#pragma once

#include "door/control/control.h"
#include "door/control/event_ring.h"

namespace achost {

// events: the messages on the bus behind the one of the number "after", then what passes, until the client goes; of the
// types in "types" (separated by commas) if there are any. The client names which run it has that number of ("run", as
// the first line of this command told), so that a host that has started anew is known for one. Lines:
//   {"following": true, "run", "after", "newest"}  first
//   {"number", "time", "message", "fields"}
//   {"gap": {"reason": "gone", "first", "last"}}   of these numbers some or all are not kept any more
//   {"gap": {"reason": "another_run", "after": 0}} the client's number is none of this run's, which it gets from its
//                                                  beginning on
// The bus never waits for a client.
ControlCommand events_command(EventRing& ring);

}  // namespace achost
