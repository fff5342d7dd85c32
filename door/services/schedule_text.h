// Schedules and holidays as a table: CSV with the columns name, days, from and to, a window or a holiday a line.
#pragma once

#include <string>
#include <string_view>

#include "door/services/schedule.h"

namespace achost {

// More is no table that a person keeps.
inline constexpr std::size_t kMostScheduleRows = 10'000;

// Throws Failure (kUsage), one line that begins with NAME:LINE, for the first thing that is wrong. Reads nothing but
// the text.
Schedules parse_schedules(std::string_view text, const std::string& name);

// parse_schedules() makes the same of it.
std::string schedules_as_text(const Schedules& schedules);

}  // namespace achost
