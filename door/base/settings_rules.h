// Settings that would disable the door together, or break the law of the region.
#pragma once

#include <chrono>
#include <vector>

#include "refhost/settings_rule.h"

namespace achost {

// How long a thread may be silent when nothing else is asked for.
inline constexpr std::chrono::seconds kUsualWatchdogLimit{30};

// The rules of a door whose watchdog ends a run after that silence.
std::vector<refhost::SettingsRule> settings_rules(std::chrono::milliseconds watchdog_limit);

}  // namespace achost
