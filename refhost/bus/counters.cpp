#include "bus/counters.h"

#include "refhost/bus_counters.h"

namespace refhost {

BusCounters bus_counters() {
  return {.delivered = running_counters.delivered.load(),
          .dropped = running_counters.dropped.load(),
          .undelivered = running_counters.undelivered.load(),
          .failures = running_counters.failures.load()};
}

}  // namespace refhost
