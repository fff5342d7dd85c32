#include "fake_clock.h"

#include <atomic>
#include <cstdint>

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

namespace {

// Nanoseconds since the epoch while the clock is frozen, 0 while it runs; any thread.
std::atomic<std::int64_t> frozen;
std::atomic<std::int64_t> tick;

}  // namespace

// The linker sends every call of steady_clock::now() here (--wrap), and those of this name to the real clock.
extern "C" steady_clock::time_point __real__ZNSt6chrono3_V212steady_clock3nowEv();
extern "C" steady_clock::time_point __wrap__ZNSt6chrono3_V212steady_clock3nowEv() {
  if (frozen == 0) {
    return __real__ZNSt6chrono3_V212steady_clock3nowEv();
  }
  return steady_clock::time_point(nanoseconds(frozen.fetch_add(tick)));
}

void fake_clock::freeze() {
  tick = 0;
  frozen = nanoseconds(std::chrono::hours(1000)).count();
}

void fake_clock::advance(nanoseconds by) { frozen += by.count(); }

steady_clock::time_point fake_clock::now() { return steady_clock::time_point(nanoseconds(frozen)); }

void fake_clock::tick_per_reading(nanoseconds by) { tick = by.count(); }

void fake_clock::release() { frozen = 0; }
