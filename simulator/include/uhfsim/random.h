#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <utility>

namespace uhfsim {

/// The seeded source of every chance in the simulator. The standard's distributions and std::shuffle may differ from
/// one library to the next; the engine may not, so only the engine is used and a seed means the same run everywhere.
///
/// Not thread-safe: each owner keeps its own.
class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  /// A number in [0, 1), with 53 random bits.
  double unit() { return static_cast<double>(engine_() >> 11) * 0x1.0p-53; }

  /// True with the given probability: 0 is never, 1 is always. One draw in every case, so that changing one
  /// probability does not shift what all later draws give.
  bool chance(double probability) { return unit() < probability; }

  /// A number in [0, bound); bound must not be 0.
  std::size_t below(std::size_t bound) { return static_cast<std::size_t>(unit() * static_cast<double>(bound)); }

  /// Puts the items into a random order (Fisher-Yates).
  template <class T>
  void shuffle(std::span<T> items) {
    for (std::size_t rest = items.size(); rest > 1; --rest) std::swap(items[rest - 1], items[below(rest)]);
  }

 private:
  std::mt19937_64 engine_;
};

}  // namespace uhfsim
