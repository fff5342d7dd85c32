// Times as people and programs read them.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace achost {

// The clock's own nanoseconds end with the year 2262; a record may bring any time.
using Milliseconds = std::chrono::sys_time<std::chrono::milliseconds>;

// The local time as strftime writes it, with the milliseconds in place of "%L" (which strftime does not have).
std::string local_time(Milliseconds time, std::string format);

// ISO 8601 with milliseconds and zone: "2026-01-02T03:04:05.006+01:00".
std::string iso_time(Milliseconds time);

// The same of a time, in ms since 1970 UTC, where the clock is so many seconds east of UTC.
std::string iso_time(std::int64_t time, std::int64_t offset);

// iso_time() of many times, one after the other: the zone's offset is looked up once for all of a day. For one thread.
class LocalTimes {
 public:
  // To the end of the text; ms since 1970 UTC.
  void append(std::string& text, std::int64_t time);

 private:
  long offset_at(std::int64_t seconds);

  std::int64_t day_ = -1;       // since 1970 UTC
  std::optional<long> offset_;  // of all of that day; nothing when it changes on it
};

// A local time without its zone, "2026-01-02 03:04:05" with or without milliseconds, as older hosts stored it: as
// iso_time() has it, with the zone's offset of that day. Any other text as it is.
std::string with_zone(const std::string& text);

}  // namespace achost
