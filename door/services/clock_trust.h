// Whether the machine's clock can be right.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace achost {

// A clock that shows an earlier time than was known has lost its time, or was set back. Times are ms since 1970 UTC.
// Any thread may call.
class ClockTrust {
 public:
  // A clock may be set right by so much.
  static constexpr std::int64_t kMost = 5LL * 60 * 1000;

  // This program is no older: 2026-01-01.
  static constexpr std::int64_t kFirst = 1'767'225'600'000;

  // It was that time already.
  void know(std::int64_t time) { known_ = std::max(known_.load(), time); }

  // To be called about each second, on one thread. is_kept_right: something sets the clock, and so knows better.
  void look(std::int64_t now, bool is_kept_right) {
    if (is_kept_right) {
      known_ = now;
    } else {
      know(now);
    }
  }

  bool is_trusted(std::int64_t now) const { return now + kMost >= known_; }

  // The newest time that is known.
  std::int64_t known() const { return known_; }

 private:
  std::atomic<std::int64_t> known_ = kFirst;
};

}  // namespace achost
