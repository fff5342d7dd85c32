// What a running host is asked about its GPIO lines.
#pragma once

#include <functional>
#include <vector>

#include "door/control/control.h"
#include "door/gpio/lines.h"
#include "door/journal/entry.h"
#include "door/services/gpio_service.h"
#include "refhost/settings_store.h"

namespace achost {

// "gpio_list", "gpio_set" and "gpio_test". All outlive the server. note: in the journal.
std::vector<ControlCommand> gpio_commands(const GpioService& gpio, const refhost::SettingsStore& settings,
                                          const std::function<void(const Entry&)>& note);

// As "gpio_list" answers it.
Json json_of(const gpio::Report& report);

}  // namespace achost
