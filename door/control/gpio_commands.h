// What a running host is asked about its GPIO lines.
#pragma once

#include <vector>

#include "door/control/control.h"
#include "door/gpio/lines.h"
#include "door/services/gpio_service.h"
#include "refhost/settings_store.h"

namespace achost {

// "gpio_list", "gpio_set" and "gpio_test". All outlive the server.
std::vector<ControlCommand> gpio_commands(const GpioService& gpio, const refhost::SettingsStore& settings);

// As "gpio_list" answers it.
Json json_of(const gpio::Report& report);

}  // namespace achost
