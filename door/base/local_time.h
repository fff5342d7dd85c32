// Times as people and programs read them.
#pragma once

#include <chrono>
#include <string>

namespace achost {

// The local time as strftime writes it, with the milliseconds in place of "%L" (which strftime does not have).
std::string local_time(std::chrono::system_clock::time_point time, std::string format);

// ISO 8601 with milliseconds and zone: "2026-01-02T03:04:05.006+01:00".
std::string iso_time(std::chrono::system_clock::time_point time);

}  // namespace achost
