// The running counters of the bus.
#pragma once

#include <atomic>
#include <cstdint>

namespace refhost {

// Each on a cache line of its own, because senders and delivery threads count at the same time. Lock-free.
struct RunningCounters {
  alignas(64) std::atomic<std::uint64_t> delivered{0};
  alignas(64) std::atomic<std::uint64_t> dropped{0};
  alignas(64) std::atomic<std::uint64_t> undelivered{0};
  alignas(64) std::atomic<std::uint64_t> failures{0};
};

inline constinit RunningCounters running_counters;

inline void count(std::atomic<std::uint64_t>& counter) { counter.fetch_add(1, std::memory_order_relaxed); }

}  // namespace refhost
