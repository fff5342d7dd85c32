// What a running host is asked about its door.
#pragma once

#include <functional>
#include <vector>

#include "door/control/control.h"
#include "door/control/stores.h"
#include "door/journal/entry.h"
#include "door/services/door_supervision.h"

namespace achost {

// The parts of a host that these commands use; all outlive the server.
struct ControlledDoor {
  DoorSupervision& supervision;
  Stores& stores;
  std::function<void(const Entry&)> note;
};

// How it stands: "lock" (open, closed), "mode", "by", "seconds_left" of a command for a time; "contact" (closed,
// opened, forced, held_warning, held_alarm) and "case" (closed, open), null where there is none.
Json json_of(const DoorSupervision::Report& report);

// door, door_open and door_mode.
std::vector<ControlCommand> door_commands(const ControlledDoor& door);

}  // namespace achost
