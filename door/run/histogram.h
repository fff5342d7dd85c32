// How long something takes, counted.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>

namespace achost {

// Counts durations in fixed buckets. Any thread may call; adding takes no lock and no memory.
class Histogram {
 public:
  // The greatest duration of each bucket but the last, which has what is longer.
  static constexpr auto kBounds = std::to_array<std::chrono::microseconds>(
      {std::chrono::microseconds(100), std::chrono::microseconds(250), std::chrono::microseconds(500),
       std::chrono::microseconds(1000), std::chrono::microseconds(2500), std::chrono::microseconds(5000),
       std::chrono::microseconds(10'000), std::chrono::microseconds(25'000), std::chrono::microseconds(50'000),
       std::chrono::microseconds(100'000), std::chrono::microseconds(250'000), std::chrono::microseconds(500'000),
       std::chrono::microseconds(1'000'000), std::chrono::microseconds(2'500'000)});

  void add(std::chrono::nanoseconds duration) {
    const auto* const bound = std::ranges::lower_bound(kBounds, duration);
    counts_.at(static_cast<std::size_t>(bound - kBounds.begin())).fetch_add(1, std::memory_order_relaxed);
    sum_.fetch_add(static_cast<std::uint64_t>(duration.count()), std::memory_order_relaxed);
  }

  // By bucket.
  std::array<std::uint64_t, kBounds.size() + 1> counts() const {
    std::array<std::uint64_t, kBounds.size() + 1> all{};
    std::ranges::transform(counts_, all.begin(), [](const auto& one) { return one.load(std::memory_order_relaxed); });
    return all;
  }

  std::chrono::nanoseconds sum() const {
    return std::chrono::nanoseconds(static_cast<std::int64_t>(sum_.load(std::memory_order_relaxed)));
  }

 private:
  std::array<std::atomic<std::uint64_t>, kBounds.size() + 1> counts_{};
  std::atomic<std::uint64_t> sum_ = 0;  // ns
};

}  // namespace achost
