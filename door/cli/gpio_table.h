// GPIO lines for a person.
#pragma once

#include <string>

#include "door/control/control.h"

namespace achost {

// From an answer to "gpio_list": the lines of the chip, then those of the bus that have no wire and are not 0.
std::string gpio_table(const Json& answer);

// An edge, as "gpio_notified" or "sec_box_rex_changed" tells it: "1623.045678901  rising   exit button". Seconds since
// the system has started, as the kernel counts them. Of a gap, gap_line(); empty for any other line of "events".
std::string edge_line(const Json& event);

}  // namespace achost
