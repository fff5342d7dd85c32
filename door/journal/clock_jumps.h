// Jumps of the machine's clock.
#pragma once

#include <cstdint>
#include <optional>

namespace achost {

// Holds the clock that may be set against the one that cannot be. The times are parameters, in milliseconds. For one
// thread at a time.
class ClockJumps {
 public:
  // What counts as one: a time service that pulls the clock right moves it by half a millisecond in a second.
  static constexpr std::int64_t kLeast = 250;

  // By how much the clock was set since the last look, forward or back; nothing when it was not.
  std::optional<std::int64_t> look(std::int64_t wall, std::int64_t monotonic) {
    const std::int64_t difference = wall - monotonic;
    const std::int64_t jump = difference - last_.value_or(difference);
    last_ = difference;
    return jump >= kLeast || jump <= -kLeast ? std::optional(jump) : std::nullopt;
  }

 private:
  std::optional<std::int64_t> last_;
};

}  // namespace achost
