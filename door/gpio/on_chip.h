// The lines of a chip for a command that has no host to ask.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "door/base/gpio_plan.h"
#include "door/gpio/chip.h"
#include "door/gpio/lines.h"

namespace achost::gpio {

// All lines of the chip, and what the plan has for them. level: of one with a use, by its number on the chip.
Report report_of(const Chip& chip, const GpioPlan& plan,
                 const std::function<std::optional<int>(const PlannedLine& line, unsigned offset)>& level);

// The same, with the levels of the plan's lines looked up where nobody has them.
Report report_of(Kernel& kernel, const GpioPlan& plan, const SettingsValues& settings);

struct RestOutcome {
  std::vector<std::string> at_rest;  // uses
  std::vector<std::string> faults;   // why another is not, a line each
};

// Give each output of the plan its level at rest, and give it back; most chips keep the level.
RestOutcome put_at_rest(Kernel& kernel, const GpioPlan& plan, const SettingsValues& settings);

}  // namespace achost::gpio
