// What the bus has done, and what it could not do.
#pragma once

#include <cstdint>

namespace refhost {

// Counted since the process began.
struct BusCounters {
  std::uint64_t delivered = 0;    // messages whose handlers have returned or thrown, one for each recipient
  std::uint64_t dropped = 0;      // messages that found their recipient's queue full, one for each recipient
  std::uint64_t undelivered = 0;  // messages that nobody was interested in
  std::uint64_t failures = 0;     // exceptions that left a handler
};

// The counters now; each is exact, together they are no snapshot. Any thread may call.
BusCounters bus_counters();

}  // namespace refhost
