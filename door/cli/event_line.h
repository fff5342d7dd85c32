// The lines of "events" for a person.
#pragma once

#include <string>

#include "door/control/control.h"

namespace achost {

// "21:30:01.123  gpio_notified  gpio=1 value=0"; of a gap, gap_line(); empty for any other line.
std::string event_line(const Json& line);

// What is missing there: "  ... 3 messages left out, no longer kept when you came to read".
std::string gap_line(const Json& line);

}  // namespace achost
