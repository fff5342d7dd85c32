// Times as people and programs read them.
#pragma once

#include <chrono>
#include <string>

namespace achost {

// The local time as strftime writes it, with the milliseconds in place of "%L" (which strftime does not have).
std::string local_time(std::chrono::system_clock::time_point time, std::string format);

// ISO 8601 with milliseconds and zone: "2026-01-02T03:04:05.006+01:00".
std::string iso_time(std::chrono::system_clock::time_point time);

// A local time without its zone, "2026-01-02 03:04:05" with or without milliseconds, as older hosts stored it: as
// iso_time() has it, with the zone's offset of that day. Any other text as it is.
std::string with_zone(const std::string& text);

}  // namespace achost
