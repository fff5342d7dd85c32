// What a gateway tells the door of itself.
#pragma once

#include "door/control/control.h"
#include "door/services/alarms.h"

namespace achost {

// gateway_alarm: an alarm that is named after the gateway, so that none takes another's away; without a text it is
// over.
ControlCommand gateway_alarm_command(Alarms& alarms);

}  // namespace achost
