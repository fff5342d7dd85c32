#include "door/gpio/lines.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace achost::gpio {

std::int64_t monotonic_now() {
  using std::chrono::steady_clock;
  return std::chrono::duration_cast<std::chrono::nanoseconds>(steady_clock::now().time_since_epoch()).count();
}

void Lines::begin(std::function<void(const Change&)> tell) {
  tell_ = std::move(tell);
  watch();
}

std::array<int, kGpioLines> Lines::levels() const {
  std::array<int, kGpioLines> levels{};
  std::ranges::transform(levels_, levels.begin(), [](const std::atomic<int>& level) { return level.load(); });
  return levels;
}

void Lines::set(int line, int level) {
  if (this->level(line) != level && move(line, level)) {
    tell(line, level, monotonic_now());
  }
}

void Lines::tell(int line, int level, std::int64_t at) {
  keep(line, level);
  tell_({line, level, at});
}

}  // namespace achost::gpio
